// Small keyed settings stored in XML property-list files in the user's
// preferences folder: the application's own defaults and the files it shares
// with the maker's other tools.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// A registered default: a boolean, an integer or a UTF-8 string.
using TLDefaultsValue = std::variant<bool, std::int64_t, std::string>;

class TLPropertyList;

// One preference file, read afresh on every lookup so that changes made by
// other programs (or other instances) are seen at once. Safe from any thread:
// every operation holds the instance's mutex for its whole read or
// read-change-write.
//
// A missing file reads as empty. A damaged file (not a property-list
// dictionary, a folder in its place, refused as hostile by TLPropertyList)
// also reads as empty and is logged once per instance; it is never silently
// replaced: before the first write over it, it is renamed to
// "<name>.damaged" (replacing an older one), and when that rename fails the
// write fails too and the damaged file stays. A zero-byte file holds nothing
// worth keeping and reads as empty without that detour.
class TLUserDefaults
{
public:
    // The application's own defaults: "com.quillmoor.Corvale.plist" in the
    // user's preferences folder. The same instance for every call while the
    // preferences folder stays where it is, so registered defaults persist.
    static std::shared_ptr<TLUserDefaults> standard();
    // A shared preference file "com.quillmoor.<domain>.plist" in the user's
    // preferences folder ("global", "qc"); one instance per file. A domain
    // that is empty or holds "/" or a NUL, or an unknown preferences folder,
    // gives an instance with an empty path: it reads as empty and every write
    // fails.
    static std::shared_ptr<TLUserDefaults> forDomain(const std::string &domain);

    // Defaults stored in the property-list file at `path` (not created until
    // the first write).
    explicit TLUserDefaults(std::string path);
    TLUserDefaults(const TLUserDefaults &) = delete;
    TLUserDefaults &operator=(const TLUserDefaults &) = delete;

    // The file's path as given ("" for an unusable instance).
    const std::string &path() const;

    // Registered defaults answer when the file has no value for a key; they
    // are never written to the file. A later registration of the same key
    // replaces the earlier value. The getters convert them like stored values.
    void registerDefaults(const std::map<std::string, TLDefaultsValue> &defaults);

    // A boolean; also an integer or real (true when non-zero) and a string
    // (true for "1", "true" and "YES" in any case, false for any other text).
    // nullopt when the key is absent (also from the registered defaults) or
    // holds another type (date, data, array, dictionary).
    std::optional<bool> boolForKey(std::string_view key) const;
    // An integer; also a boolean (0 or 1), a real (truncated toward zero when
    // in range) and a string holding only a decimal integer (surrounding
    // blanks allowed). nullopt when absent, out of range or of another type.
    std::optional<std::int64_t> integerForKey(std::string_view key) const;
    // A string; nullopt when absent or of another type.
    std::optional<std::string> stringForKey(std::string_view key) const;
    // A date (the XML form keeps whole seconds); nullopt when absent or of
    // another type (registered defaults hold no dates).
    std::optional<std::chrono::system_clock::time_point> dateForKey(std::string_view key) const;

    // Each set re-reads the file, changes the one key and writes the file back
    // atomically as an XML property list, creating the preferences folder
    // when missing. False (file untouched) when it cannot be written, when
    // the key or a string value holds a NUL, or when a damaged file cannot be
    // moved aside. A date is stored in whole seconds (the fraction dropped)
    // and must lie within about 68 years of 2001.
    bool setBool(std::string_view key, bool value);
    bool setInteger(std::string_view key, std::int64_t value);
    bool setString(std::string_view key, const std::string &value);
    bool setDate(std::string_view key, std::chrono::system_clock::time_point value);
    // Removes the key from the file (registered defaults stay). True when the
    // key is gone afterwards, also when it was never there (then nothing is
    // written); false when the file cannot be written.
    bool removeObjectForKey(std::string_view key);

private:
    struct Lookup;
    Lookup lookUp(std::string_view key) const;
    TLPropertyList readLocked() const;
    template <typename Change>
    bool changeKey(std::string_view key, Change &&change);
    bool moveDamagedFileAsideLocked();

    const std::string m_path;
    mutable std::mutex m_mutex;
    std::map<std::string, TLDefaultsValue, std::less<>> m_registered;
    mutable bool m_damageReported = false;
};
