// An alert presenter that records every alert instead of showing it.
#pragma once

#include "TLAlertPresenter.h"

#include <mutex>
#include <string>
#include <vector>

namespace test {

class FakeAlertPresenter : public TLAlertPresenter
{
public:
    struct Alert
    {
        std::string message;
        std::string informativeText;
        void *parentWindow = nullptr;
    };

    int alertSheetWithMessageText(const std::string &message, const std::string &informativeText,
                                  void *parentWindow) override
    {
        const std::lock_guard lock(m_mutex);
        m_alerts.push_back({message, informativeText, parentWindow});
        return returnCode;
    }

    std::vector<Alert> alerts() const
    {
        const std::lock_guard lock(m_mutex);
        return m_alerts;
    }

    // The answer every alert gets: the default button unless changed.
    int returnCode = 1;

private:
    mutable std::mutex m_mutex;
    std::vector<Alert> m_alerts;
};

} // namespace test
