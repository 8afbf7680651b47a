// The alert description's dictionary form, the presenter's defaults and the
// presenter used when no window can show an alert: standard error.
#include "TLAlertPresenter.h"

#include <cstdio>
#include <mutex>
#include <thread>

namespace {

class TLStandardErrorAlertPresenter final : public TLAlertPresenter
{
public:
    bool beginAlert(AlertId, const TLAlertDescription &description, void *,
                    std::function<void(int)> didEnd) override
    {
        std::string text = description.messageText.value_or("") + "\n";
        const auto informativeText = description.informativeText.value_or("");
        if (!informativeText.empty())
            text += informativeText + "\n";
        write(text);
        if (didEnd)
            didEnd(1);
        return true;
    }

private:
    static void write(const std::string &text)
    {
        // One write per alert, so that alerts from two threads never mingle.
        static std::mutex writing;
        const std::lock_guard lock(writing);
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
    }
};

void addIfSet(std::map<std::string, std::string> &dictionary, const char *key,
              const std::optional<std::string> &value)
{
    if (value)
        dictionary.emplace(key, *value);
}

} // namespace

std::map<std::string, std::string> TLAlertDescription::dictionary() const
{
    std::map<std::string, std::string> result;
    addIfSet(result, "messageText", messageText);
    addIfSet(result, "defaultButtonTitle", defaultButtonTitle);
    addIfSet(result, "alternateButtonTitle", alternateButtonTitle);
    addIfSet(result, "otherButtonTitle", otherButtonTitle);
    addIfSet(result, "informativeText", informativeText);
    addIfSet(result, "didEndSelector", didEndSelector);
    addIfSet(result, "suppressionBinding", suppressionBinding);
    return result;
}

void TLAlertPresenter::closeAlert(AlertId) {}

bool TLAlertPresenter::windowHasAttachedSheet(void *) const
{
    return false;
}

void TLAlertPresenter::processEvents(std::chrono::milliseconds timeout)
{
    // Nothing to handle; letting the time pass keeps a waiting main thread
    // from spinning.
    std::this_thread::sleep_for(timeout);
}

std::shared_ptr<TLAlertPresenter> TLAlertPresenter::standardError()
{
    return std::make_shared<TLStandardErrorAlertPresenter>();
}
