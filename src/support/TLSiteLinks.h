// The web addresses of the maker's site that the Help menu opens.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Builds the addresses of the maker's support pages. Stateless and safe from
// any thread. Every address starts from one base address, a setting of its
// own (see baseURL), so that a mirror or a test site can stand in for the
// maker's.
class TLSiteLinks
{
public:
    // The base address used when no setting names another.
    static constexpr const char *defaultBaseURL = "https://www.quillmoor.com";
    // The key of the base address setting in the shared file
    // "com.quillmoor.global.plist" (a string).
    static constexpr const char *baseURLKey = "TLSiteBaseURL";

    // The site base: the setting when it holds a non-empty string (a trailing
    // "/" dropped), else defaultBaseURL.
    static std::string baseURL();

    // The maker's site home: the base address.
    static std::string quillmoorURL();
    // The product family's page: home + "/tessaline".
    static std::string TessalineToolsURL();
    // base + "/support/<name>".
    static std::string supportURLForAppName(const std::string &name);
    // bugReportURLWithAppName(name, subapp, version) with the application's
    // own version (CORVALE_VERSION).
    static std::string bugReportURLWithAppName(const std::string &name,
                                               const std::optional<std::string> &subapp);
    // base + "/support/<name>/bugreport/", then "?app=<subapp>" when a
    // sub-application is given (an empty one counts as none), then when a
    // version is given "&" (or "?" when no sub-application was added) and
    // "version=<version>" with the version percent-escaped.
    static std::string bugReportURLWithAppName(const std::string &name,
                                               const std::optional<std::string> &subapp,
                                               const std::optional<std::string> &version);
    // base + "/support/<name>/featurerequest/", then "?app=<subapp>" when a
    // sub-application is given.
    static std::string featureRequestURLWithAppName(const std::string &name,
                                                    const std::optional<std::string> &subapp);

    // `text` with every UTF-8 byte outside printable ASCII and each of
    // ` "#%<>[\]^`{|}` written as "%XX" (upper-case hexadecimal); the
    // characters that structure an address ("/?&=+:;@$,") are kept.
    static std::string percentEscaped(std::string_view text);
};
