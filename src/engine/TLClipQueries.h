// The queries that read a browser clip's logging and media fields.
#pragma once

// XPath queries evaluated with a clip element as the context, shared by the
// resolvers that test or group clips by these fields. Each selects the text
// of the first such element; nothing when the clip lacks it.
class TLClipQueries
{
public:
    static constexpr const char *timebase = "./rate[1]/timebase[1]/text()";
    static constexpr const char *width =
        "./media[1]/video[1]/track/clipitem/file[1]/media[1]/video[1]/samplecharacteristics[1]/width[1]/text()";
    static constexpr const char *height =
        "./media[1]/video[1]/track/clipitem/file[1]/media[1]/video[1]/samplecharacteristics[1]/height[1]/text()";
    static constexpr const char *fieldDominance = "./media[1]/video[1]/track/clipitem/fielddominance[1]/text()";
    static constexpr const char *scene = "./logginginfo[1]/scene[1]/text()";
    static constexpr const char *shotTake = "./logginginfo[1]/shottake[1]/text()";
    static constexpr const char *logNote = "./logginginfo[1]/lognote[1]/text()";
    static constexpr const char *good = "./logginginfo[1]/good[1]/text()";
    static constexpr const char *label = "./labels[1]/label2[1]/text()";
    static constexpr const char *masterComment1 = "./comments[1]/mastercomment1[1]/text()";
    static constexpr const char *masterComment2 = "./comments[1]/mastercomment2[1]/text()";
    static constexpr const char *masterComment3 = "./comments[1]/mastercomment3[1]/text()";
    static constexpr const char *masterComment4 = "./comments[1]/mastercomment4[1]/text()";
    static constexpr const char *audio = "./media[1]/audio[1]/text()";
};
