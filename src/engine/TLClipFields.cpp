// The rows of the smart bin and smart range tables.
#include "TLClipFields.h"

#include "TLClipQueries.h"

#include <array>

namespace {

constexpr std::string_view fileTypeAliases[] = {"extension"};
constexpr std::string_view lacksAliases[] = {"not-contains"};
constexpr std::string_view equalsAliases[] = {"equals"};

using F = TLClipFields;

constexpr std::array<TLClipField, F::smartBinFieldCount> smartBinFieldRows{{
    {{0, "name", {}, "Clip Name", "the clip's name"}, "./name[1]/text()"},
    {{F::fileNameField, "file-name", {}, "File Name", "the name of the clip's media file"}, nullptr},
    {{F::fileExtensionField, "file-type", fileTypeAliases, "File Extension",
      "the extension of the media file, as written"},
     nullptr},
    {{3, "url", {}, "Media URL", "the URL of the file held directly by the clip"}, "./file[1]/pathurl[1]/text()"},
    {{4, "duration", {}, "Duration", "the duration, in frames"}, "./duration[1]/text()"},
    {{5, "timebase", {}, "Timebase", "the frame rate's timebase"}, TLClipQueries::timebase},
    {{6, "width", {}, "Width", "the frame width"}, TLClipQueries::width},
    {{7, "height", {}, "Height", "the frame height"}, TLClipQueries::height},
    {{8, "field-dominance", {}, "Field Dominance", "the field dominance"}, TLClipQueries::fieldDominance},
    {{9, "scene", {}, "Scene", "the logged scene"}, TLClipQueries::scene},
    {{10, "shot-take", {}, "Shot/Take", "the logged shot or take"}, TLClipQueries::shotTake},
    {{11, "log-note", {}, "Log Note", "the log note"}, TLClipQueries::logNote},
    {{12, "good", {}, "Good", "the good mark, as stored"}, TLClipQueries::good},
    {{13, "label", {}, "Label", "the colour label"}, TLClipQueries::label},
    {{14, "comment-1", {}, "Master Comment 1", "master comment 1"}, TLClipQueries::masterComment1},
    {{15, "comment-2", {}, "Master Comment 2", "master comment 2"}, TLClipQueries::masterComment2},
    {{16, "comment-3", {}, "Master Comment 3", "master comment 3"}, TLClipQueries::masterComment3},
    {{17, "comment-4", {}, "Master Comment 4", "master comment 4"}, TLClipQueries::masterComment4},
    {{18, "audio", {}, "Audio", "the text directly inside the clip's audio"}, TLClipQueries::audio},
    {{F::hasAudioField, "has-audio", {}, "Has Audio", "\"true\" or \"false\": whether the clip has sound"},
     nullptr},
    // The file's own media element, as smartBinSampleRateQuery reads it.
    {{20, "audio-depth", {}, "Audio Bit Depth", "the audio bit depth"},
     "./media[1]/audio[1]/track/clipitem/file[1]/media[1]/audio[1]/samplecharacteristics[1]/depth[1]/text()"},
}};

constexpr std::array<TLClipChoice, 6> operatorRows{{
    {0, "contains", {}, "contains", "the field contains the value, ignoring case"},
    {1, "does-not-contain", lacksAliases, "does not contain", "the field does not contain the value, ignoring case"},
    {2, "is", equalsAliases, "is", "the field equals the value exactly"},
    {3, "is-not", {}, "is not", "the field differs from the value"},
    {4, "after", {}, "sorts after", "the field sorts after the value, as text (\"9\" after \"100\")"},
    {5, "before", {}, "sorts before", "the field sorts before the value, as text"},
}};

constexpr std::array<TLClipChoice, 3> matchTypeRows{{
    {0, "first", {}, "the first filter", "only the first filter counts, and only in a bin of one filter"},
    {1, "any", {}, "any filter", "a clip is listed once for every filter it passes"},
    {2, "all", {}, "all filters", "a clip is listed when it passes every filter"},
}};

constexpr std::array<TLClipField, F::smartRangeCriterionCount> smartRangeCriterionRows{{
    {{F::fileTypeCriterion, "file-type", {}, "File Type", "the media file's extension, lower-cased"}, nullptr},
    {{F::noCriterion, "", {}, "", "(no criterion: makes no bins)"}, nullptr},
    {{F::folderCriterion, "folder", {}, "Folder", "the folder that holds the media file"}, nullptr},
    {{3, "timebase", {}, "Timebase", "the frame rate's timebase"}, TLClipQueries::timebase},
    {{4, "width", {}, "Width", "the frame width"}, TLClipQueries::width},
    {{5, "height", {}, "Height", "the frame height"}, TLClipQueries::height},
    {{6, "field-dominance", {}, "Field Dominance", "the field dominance"}, TLClipQueries::fieldDominance},
    {{7, "scene", {}, "Scene", "the logged scene"}, TLClipQueries::scene},
    {{8, "shot-take", {}, "Shot/Take", "the logged shot or take"}, TLClipQueries::shotTake},
    {{9, "log-note", {}, "Log Note", "the log note"}, TLClipQueries::logNote},
    {{10, "good", {}, "Good", "the good mark, as stored"}, TLClipQueries::good},
    {{11, "label", {}, "Label", "the colour label"}, TLClipQueries::label},
    {{12, "comment-1", {}, "Master Comment 1", "master comment 1"}, TLClipQueries::masterComment1},
    {{13, "comment-2", {}, "Master Comment 2", "master comment 2"}, TLClipQueries::masterComment2},
    {{14, "comment-3", {}, "Master Comment 3", "master comment 3"}, TLClipQueries::masterComment3},
    {{15, "comment-4", {}, "Master Comment 4", "master comment 4"}, TLClipQueries::masterComment4},
    {{F::hasAudioCriterion, "has-audio", {}, "Has Audio", "\"true\" or \"false\": whether the clip has sound"},
     TLClipQueries::audio},
    // Any media element under the file, unlike the smart bin's reading (see
    // TLClipFields::smartBinSampleRateQuery); kept as it is on purpose.
    {{17, "sample-rate", {}, "Audio Sample Rate", "the audio sample rate"},
     "./media[1]/audio[1]/track/clipitem/file[1]//media[1]/audio[1]/samplecharacteristics[1]/samplerate[1]/text()"},
    {{18, "audio-depth", {}, "Audio Bit Depth", "the audio bit depth"},
     "./media[1]/audio[1]/track/clipitem/file[1]//media[1]/audio[1]/samplecharacteristics[1]/depth[1]/text()"},
}};

template <typename Row>
const Row *rowForNumber(std::span<const Row> rows, std::int64_t number)
{
    if (number < 0 || number >= std::int64_t(rows.size()))
        return nullptr;
    return &rows[std::size_t(number)];
}

} // namespace

std::span<const TLClipField> TLClipFields::smartBinFields()
{
    return smartBinFieldRows;
}

std::span<const TLClipChoice> TLClipFields::operators()
{
    return operatorRows;
}

std::span<const TLClipChoice> TLClipFields::matchTypes()
{
    return matchTypeRows;
}

std::span<const TLClipField> TLClipFields::smartRangeCriteria()
{
    return smartRangeCriterionRows;
}

const TLClipField *TLClipFields::smartBinField(std::int64_t number)
{
    return rowForNumber(smartBinFields(), number);
}

const TLClipField *TLClipFields::smartRangeCriterion(std::int64_t number)
{
    return rowForNumber(smartRangeCriteria(), number);
}
