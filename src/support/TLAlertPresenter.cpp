// The presenter used when no window can show an alert: standard error.
#include "TLAlertPresenter.h"

#include <cstdio>
#include <mutex>

namespace {

class TLStandardErrorAlertPresenter final : public TLAlertPresenter
{
public:
    int alertSheetWithMessageText(const std::string &message, const std::string &informativeText,
                                  void *) override
    {
        std::string text = message + "\n";
        if (!informativeText.empty())
            text += informativeText + "\n";
        // One write per alert, so that alerts from two threads never mingle.
        static std::mutex writing;
        const std::lock_guard lock(writing);
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
        return 1;
    }
};

} // namespace

std::shared_ptr<TLAlertPresenter> TLAlertPresenter::standardError()
{
    return std::make_shared<TLStandardErrorAlertPresenter>();
}
