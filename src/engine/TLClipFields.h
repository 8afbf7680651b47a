// The one table of what a smart bin row and a smart range can ask of a clip:
// the numbers stored in projects, the words of the command line, the labels
// of the sheets and the queries of the resolvers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// One choice of a smart bin row or a smart range: the number a project
// stores, and how people name it.
struct TLClipChoice
{
    std::int64_t number;
    // The command line's word; empty for a number with no meaning of its own.
    std::string_view name;
    // Further words the command line accepts for the same number.
    std::span<const std::string_view> aliases;
    // The sheets' menu text, null-terminated since it goes to Qt's
    // translation look-up as it is; empty where no sheet offers the number.
    const char *label;
    // The command line's help text, for `corvale fields`.
    std::string_view description;
};

// A smart bin field or smart range criterion: a choice and how its value is
// read of a clip.
struct TLClipField : TLClipChoice
{
    // The XPath query evaluated with the clip element as context, selecting
    // the value's text; null when the resolver works the value out itself
    // (see the computed numbers of TLClipFields).
    const char *query;
};

// Stateless. Each table lists every number the engine knows, in number
// order from 0 with none missing, so a table's index is its number. The two
// families are numbered apart: the same word ("scene") is field 9 and
// criterion 7.
class TLClipFields
{
public:
    static constexpr std::size_t smartBinFieldCount = 21;
    static constexpr std::size_t smartRangeCriterionCount = 19;

    // Smart bin fields (a row's filterType) 0 to 20.
    static std::span<const TLClipField> smartBinFields();
    // Smart bin operators (a row's filterMatch) 0 to 5.
    static std::span<const TLClipChoice> operators();
    // Smart bin match types 0 to 2.
    static std::span<const TLClipChoice> matchTypes();
    // Smart range criteria 0 to 18.
    static std::span<const TLClipField> smartRangeCriteria();

    // The field or criterion of that number; null outside the table.
    static const TLClipField *smartBinField(std::int64_t number);
    static const TLClipField *smartRangeCriterion(std::int64_t number);

    // The smart bin fields without a query, worked out from the clip's media
    // path: its last component, its extension as written, and whether the
    // clip has audio (an "aif", "aiff" or "wav" file, else a sample rate read
    // by smartBinSampleRateQuery).
    static constexpr std::int64_t fileNameField = 1;
    static constexpr std::int64_t fileExtensionField = 2;
    static constexpr std::int64_t hasAudioField = 19;

    // The smart range criteria without a query: the media file's extension,
    // lower-cased, and the folder that holds it.
    static constexpr std::int64_t fileTypeCriterion = 0;
    static constexpr std::int64_t folderCriterion = 2;
    // The number with no criterion behind it: no name, no label, no bins.
    static constexpr std::int64_t noCriterion = 1;
    // Read by its query, then given as "true" or "false" for whether the
    // text is empty.
    static constexpr std::int64_t hasAudioCriterion = 16;

    // The sample rate the smart bin's has-audio field falls back on. It
    // reads the media element directly inside the clip's file, where the
    // smart range's sample-rate criterion (17) reads the first media element
    // at any depth under it ("file[1]//media[1]"). A file with a media
    // element below one of its other elements gives the range a value the
    // bin does not see, or a different one; bins and ranges already made
    // were resolved with each spelling as it is, so neither may be brought
    // in line with the other. The bit depth queries (field 20, criterion 18)
    // differ in the same way.
    static constexpr const char *smartBinSampleRateQuery =
        "./media[1]/audio[1]/track/clipitem/file[1]/media[1]/audio[1]/samplecharacteristics[1]/samplerate[1]/text()";
};
