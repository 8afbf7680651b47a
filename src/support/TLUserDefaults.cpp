// Preference files: lookups with conversions, atomic one-key updates and the
// care taken never to lose a damaged file.
#include "TLUserDefaults.h"

#include "TLAtomicFile.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLPropertyList.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using TimePoint = std::chrono::system_clock::time_point;

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
constexpr std::int64_t referenceDateOffset = 978307200;

struct Unsupported
{
};

using Value = std::variant<std::monostate, bool, std::int64_t, double, std::string, TimePoint, Unsupported>;

Value valueOfNode(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: return *TLPropertyList::boolValue(node);
    case PLIST_UINT: return *TLPropertyList::integerValue(node);
    case PLIST_STRING: return *TLPropertyList::stringValue(node);
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        return number;
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        // The getter splits a negative time as whole seconds and a positive
        // fraction that must be taken away, not added.
        const std::int64_t fraction = seconds < 0 ? -std::int64_t(microseconds) : microseconds;
        const auto sinceEpoch = std::chrono::seconds(seconds + referenceDateOffset) + std::chrono::microseconds(fraction);
        return TimePoint(std::chrono::duration_cast<TimePoint::duration>(sinceEpoch));
    }
    default: return Unsupported{};
    }
}

Value valueOfDefault(const TLDefaultsValue &value)
{
    return std::visit([](const auto &held) { return Value(held); }, value);
}

bool equalsIgnoringCase(std::string_view text, std::string_view expected)
{
    if (text.size() != expected.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto a = static_cast<unsigned char>(text[i]);
        const auto b = static_cast<unsigned char>(expected[i]);
        if (std::tolower(a) != std::tolower(b))
            return false;
    }
    return true;
}

std::optional<std::int64_t> parseInteger(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\n\r");
    if (first == std::string_view::npos)
        return std::nullopt;
    text = text.substr(first, text.find_last_not_of(" \t\n\r") - first + 1);
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::optional<std::int64_t> truncatedReal(double number)
{
    // 2^63 itself is out of range, hence the strict comparison.
    constexpr double limit = 9223372036854775808.0;
    if (!std::isfinite(number) || number >= limit || number < -limit)
        return std::nullopt;
    return static_cast<std::int64_t>(number);
}

bool holdsNul(std::string_view text)
{
    return text.find('\0') != std::string_view::npos;
}

// Reads the file behind `path` without ever blocking on a pipe or device:
// the descriptor is opened non-blocking and anything but a regular file is
// refused before a byte is read.
enum class ReadState { missing, empty, readable, damaged };

ReadState readFileBytes(const std::string &path, std::string &bytes, std::string &reason)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        if (errno == ENOENT)
            return ReadState::missing;
        reason = std::strerror(errno);
        return ReadState::damaged;
    }
    struct stat info {};
    ReadState state = ReadState::readable;
    if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
        reason = "it is not a regular file";
        state = ReadState::damaged;
    } else if (static_cast<std::uint64_t>(info.st_size) > TLPropertyList::maximumByteCount) {
        reason = "it is too large";
        state = ReadState::damaged;
    } else {
        bytes.resize(static_cast<std::size_t>(info.st_size));
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t count = ::read(descriptor, bytes.data() + done, bytes.size() - done);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                break;
            done += static_cast<std::size_t>(count);
        }
        bytes.resize(done);
        if (bytes.empty())
            state = ReadState::empty;
    }
    ::close(descriptor);
    return state;
}

std::string pathForDomain(const std::string &domain)
{
    if (domain.empty() || domain.find('/') != std::string::npos || holdsNul(domain))
        return {};
    const auto folder = TLLocalPaths::prefsDirectory(true);
    if (!folder || folder->empty())
        return {};
    return *folder + "/com.quillmoor." + domain + ".plist";
}

// One instance per file, so that two parts of the program changing the same
// file share one mutex and one set of registered defaults.
std::shared_ptr<TLUserDefaults> sharedInstanceForPath(const std::string &path)
{
    static std::mutex registryMutex;
    static std::map<std::string, std::shared_ptr<TLUserDefaults>> registry;
    const std::lock_guard lock(registryMutex);
    auto &instance = registry[path];
    if (!instance)
        instance = std::make_shared<TLUserDefaults>(path);
    return instance;
}

} // namespace

struct TLUserDefaults::Lookup
{
    Value value;
};

std::shared_ptr<TLUserDefaults> TLUserDefaults::standard()
{
    return forDomain("Corvale");
}

std::shared_ptr<TLUserDefaults> TLUserDefaults::forDomain(const std::string &domain)
{
    return sharedInstanceForPath(pathForDomain(domain));
}

TLUserDefaults::TLUserDefaults(std::string path) : m_path(std::move(path)) {}

const std::string &TLUserDefaults::path() const
{
    return m_path;
}

void TLUserDefaults::registerDefaults(const std::map<std::string, TLDefaultsValue> &defaults)
{
    const std::lock_guard lock(m_mutex);
    for (const auto &[key, value] : defaults)
        m_registered.insert_or_assign(key, value);
}

TLPropertyList TLUserDefaults::readLocked() const
{
    if (m_path.empty())
        return TLPropertyList::newDictionary();
    std::string bytes;
    std::string reason;
    const ReadState state = readFileBytes(m_path, bytes, reason);
    if (state == ReadState::missing || state == ReadState::empty)
        return TLPropertyList::newDictionary();
    TLPropertyList list;
    if (state == ReadState::readable) {
        list = TLPropertyList::fromBytes(bytes, reason);
        if (list && plist_get_node_type(list.root()) != PLIST_DICT) {
            reason = "its top level is not a dictionary";
            list = TLPropertyList();
        }
    }
    if (!list && !m_damageReported) {
        m_damageReported = true;
        TLLog::appendLog("Preferences file %@ cannot be read (%@); its values are ignored", m_path, reason);
    }
    return list;
}

TLUserDefaults::Lookup TLUserDefaults::lookUp(std::string_view key) const
{
    const std::lock_guard lock(m_mutex);
    const TLPropertyList list = readLocked();
    if (const plist_t node = list.itemForKey(key))
        return {valueOfNode(node)};
    if (const auto found = m_registered.find(key); found != m_registered.end())
        return {valueOfDefault(found->second)};
    return {};
}

std::optional<bool> TLUserDefaults::boolForKey(std::string_view key) const
{
    const Value value = lookUp(key).value;
    if (const auto *flag = std::get_if<bool>(&value))
        return *flag;
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return *number != 0;
    if (const auto *real = std::get_if<double>(&value))
        return *real != 0.0;
    if (const auto *text = std::get_if<std::string>(&value))
        return *text == "1" || equalsIgnoringCase(*text, "true") || equalsIgnoringCase(*text, "YES");
    return std::nullopt;
}

std::optional<std::int64_t> TLUserDefaults::integerForKey(std::string_view key) const
{
    const Value value = lookUp(key).value;
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return *number;
    if (const auto *flag = std::get_if<bool>(&value))
        return *flag ? 1 : 0;
    if (const auto *real = std::get_if<double>(&value))
        return truncatedReal(*real);
    if (const auto *text = std::get_if<std::string>(&value))
        return parseInteger(*text);
    return std::nullopt;
}

std::optional<std::string> TLUserDefaults::stringForKey(std::string_view key) const
{
    const Value value = lookUp(key).value;
    if (const auto *text = std::get_if<std::string>(&value))
        return *text;
    return std::nullopt;
}

std::optional<TimePoint> TLUserDefaults::dateForKey(std::string_view key) const
{
    const Value value = lookUp(key).value;
    if (const auto *date = std::get_if<TimePoint>(&value))
        return *date;
    return std::nullopt;
}

bool TLUserDefaults::moveDamagedFileAsideLocked()
{
    const std::string aside = m_path + ".damaged";
    std::error_code error;
    // A folder standing in the way is moved aside too; an older ".damaged"
    // copy gives way to the newer one.
    std::filesystem::remove_all(aside, error);
    if (::rename(m_path.c_str(), aside.c_str()) != 0) {
        TLLog::appendLog("Cannot move damaged preferences file %@ aside: %@", m_path, std::strerror(errno));
        return false;
    }
    TLLog::appendLog("Moved damaged preferences file %@ to %@", m_path, aside);
    m_damageReported = false;
    return true;
}

template <typename Change>
bool TLUserDefaults::changeKey(std::string_view key, Change &&change)
{
    if (m_path.empty() || holdsNul(key))
        return false;
    const std::lock_guard lock(m_mutex);
    TLPropertyList list = readLocked();
    const bool damaged = !list;
    if (damaged)
        list = TLPropertyList::newDictionary();
    if (!change(list))
        return false;
    if (damaged && !moveDamagedFileAsideLocked())
        return false;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(m_path).parent_path(), error);
    const auto problem = list.writeToFile(m_path, TLPropertyList::Format::XML);
    if (problem.empty())
        return true;
    TLLog::appendLog("Cannot write preferences file %@: %@", m_path, problem);
    return false;
}

bool TLUserDefaults::setBool(std::string_view key, bool value)
{
    return changeKey(key, [&](TLPropertyList &list) { return list.setBoolForKey(key, value); });
}

bool TLUserDefaults::setInteger(std::string_view key, std::int64_t value)
{
    return changeKey(key, [&](TLPropertyList &list) { return list.setIntegerForKey(key, value); });
}

bool TLUserDefaults::setString(std::string_view key, const std::string &value)
{
    return changeKey(key, [&](TLPropertyList &list) { return list.setStringForKey(key, value); });
}

bool TLUserDefaults::setDate(std::string_view key, TimePoint value)
{
    // Whole seconds: the XML form of a date keeps no fraction.
    const std::int64_t seconds =
        std::chrono::floor<std::chrono::seconds>(value.time_since_epoch()).count() - referenceDateOffset;
    if (seconds < std::numeric_limits<std::int32_t>::min() || seconds > std::numeric_limits<std::int32_t>::max())
        return false;
    return changeKey(key, [&](TLPropertyList &list) {
        plist_dict_set_item(list.root(), std::string(key).c_str(), plist_new_date(static_cast<std::int32_t>(seconds), 0));
        return true;
    });
}

bool TLUserDefaults::removeObjectForKey(std::string_view key)
{
    if (m_path.empty() || holdsNul(key))
        return false;
    {
        const std::lock_guard lock(m_mutex);
        // Nothing to remove (a damaged file reads as empty) writes nothing.
        if (!readLocked().itemForKey(key))
            return true;
    }
    return changeKey(key, [&](TLPropertyList &list) {
        if (list.itemForKey(key))
            plist_dict_remove_item(list.root(), std::string(key).c_str());
        return true;
    });
}
