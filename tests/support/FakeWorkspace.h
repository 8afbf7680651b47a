// A workspace for tests: prepared running applications and program files,
// and a record of everything opened or launched.
#pragma once

#include "TLWorkspace.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace test {

class FakeWorkspace : public TLWorkspace
{
public:
    // One request made of the workspace: its kind ("openFile",
    // "openFileWithApplication", "openURL", "launchApplication") and values.
    struct Request {
        std::string kind;
        std::vector<std::string> values;
    };

    // Prepared answers.
    std::vector<RunningApplication> running;
    std::map<std::string, std::string> executables; // application path -> program file
    bool succeeds = true;

    std::vector<Request> requests() const
    {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

    std::vector<RunningApplication>
    runningApplicationsWithBundleIdentifier(const std::string &bundleIdentifier) const override
    {
        std::vector<RunningApplication> matching;
        for (const RunningApplication &application : running) {
            if (!bundleIdentifier.empty() && application.bundleIdentifier == bundleIdentifier)
                matching.push_back(application);
        }
        return matching;
    }

    std::optional<std::string> executablePath(const std::string &applicationPath) const override
    {
        const auto found = executables.find(applicationPath);
        if (found == executables.end())
            return std::nullopt;
        return found->second;
    }

    bool openFile(const std::string &path) override { return record("openFile", {path}); }
    bool openFile(const std::string &path, const std::string &applicationPath) override
    {
        return record("openFileWithApplication", {path, applicationPath});
    }
    bool openURL(const std::string &url) override { return record("openURL", {url}); }
    bool launchApplication(const std::string &applicationPath,
                           const std::vector<std::string> &arguments) override
    {
        std::vector<std::string> values = {applicationPath};
        values.insert(values.end(), arguments.begin(), arguments.end());
        return record("launchApplication", values);
    }

private:
    bool record(std::string kind, std::vector<std::string> values)
    {
        const std::lock_guard lock(m_mutex);
        m_requests.push_back({std::move(kind), std::move(values)});
        return succeeds;
    }

    mutable std::mutex m_mutex;
    std::vector<Request> m_requests;
};

} // namespace test
