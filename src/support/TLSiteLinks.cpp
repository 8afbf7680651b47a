// Addresses of the maker's web site.
#include "TLSiteLinks.h"

#include "TLUserDefaults.h"

namespace {

bool hasSubapp(const std::optional<std::string> &subapp)
{
    return subapp && !subapp->empty();
}

bool needsEscape(unsigned char byte)
{
    if (byte <= 0x20 || byte >= 0x7F)
        return true;
    return std::string_view("\"#%<>[\\]^`{|}").find(static_cast<char>(byte)) != std::string_view::npos;
}

} // namespace

std::string TLSiteLinks::baseURL()
{
    auto base = TLUserDefaults::forDomain("global")->stringForKey(baseURLKey).value_or("");
    while (!base.empty() && base.back() == '/')
        base.pop_back();
    return base.empty() ? defaultBaseURL : base;
}

std::string TLSiteLinks::quillmoorURL()
{
    return baseURL();
}

std::string TLSiteLinks::TessalineToolsURL()
{
    return quillmoorURL() + "/tessaline";
}

std::string TLSiteLinks::supportURLForAppName(const std::string &name)
{
    return baseURL() + "/support/" + name;
}

std::string TLSiteLinks::bugReportURLWithAppName(const std::string &name,
                                                 const std::optional<std::string> &subapp)
{
#ifdef CORVALE_VERSION
    return bugReportURLWithAppName(name, subapp, std::string(CORVALE_VERSION));
#else
    return bugReportURLWithAppName(name, subapp, std::nullopt);
#endif
}

std::string TLSiteLinks::bugReportURLWithAppName(const std::string &name,
                                                 const std::optional<std::string> &subapp,
                                                 const std::optional<std::string> &version)
{
    std::string url = supportURLForAppName(name) + "/bugreport/";
    if (hasSubapp(subapp))
        url += "?app=" + *subapp;
    if (version)
        url += (hasSubapp(subapp) ? "&" : "?") + std::string("version=") + percentEscaped(*version);
    return url;
}

std::string TLSiteLinks::featureRequestURLWithAppName(const std::string &name,
                                                      const std::optional<std::string> &subapp)
{
    std::string url = supportURLForAppName(name) + "/featurerequest/";
    if (hasSubapp(subapp))
        url += "?app=" + *subapp;
    return url;
}

std::string TLSiteLinks::percentEscaped(std::string_view text)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (!needsEscape(byte)) {
            escaped += character;
            continue;
        }
        escaped += '%';
        escaped += digits[byte >> 4];
        escaped += digits[byte & 0x0F];
    }
    return escaped;
}
