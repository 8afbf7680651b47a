// Small xmeml projects for the document tests: built from plain structs,
// written to a temporary folder, with a few ready-made projects.
#pragma once

#include "TLFCPProjectController.h"
#include "TestSupport.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

// One browser clip. Every optional part is left out of the XML when absent
// (and every member has a default, so designated initializers may skip any).
// With a pathurl the clip gets a video track item holding a file with that
// URL (and the masterclipid, when given, on the track item, so that
// "./../../masterclipid" from the pathurl finds it).
struct FixtureClip
{
    std::string id{};                      // the clip's id attribute
    std::optional<std::string> name{};
    std::optional<std::string> uuid{};
    std::optional<std::string> pathurl{};    // e.g. "file://localhost/Media/a.mov"
    std::optional<std::string> fileName{};   // the file's own name element
    std::optional<std::string> masterclipid{};
    std::optional<std::string> duration{};
    std::optional<std::string> timebase{};
    std::optional<std::string> width{};      // sample characteristics of the file
    std::optional<std::string> height{};
    // logginginfo
    std::optional<std::string> scene{};
    std::optional<std::string> shottake{};
    std::optional<std::string> lognote{};
    std::optional<std::string> good{};
    // labels/label2
    std::optional<std::string> label{};
    // comments/mastercomment1
    std::optional<std::string> comment{};
};

// A bin already in the project (as an earlier send would have left it).
struct FixtureBin
{
    std::string name{};
    std::optional<std::string> uuid{};
    std::optional<std::string> updateBehavior{};
    std::vector<FixtureClip> clips{};
    std::vector<FixtureBin> bins{};
};

// Builds "<xmeml version=...><project><name/><children>...</children>
// </project></xmeml>" with the clips, bins and sequences added, in the order
// they were added.
class ProjectBuilder
{
public:
    explicit ProjectBuilder(std::string projectName = "Demo", std::string version = "5");

    ProjectBuilder &addClip(FixtureClip clip);
    ProjectBuilder &addBin(FixtureBin bin);
    // A named sequence among the project's children.
    ProjectBuilder &addSequence(std::string name);

    // The document as indented UTF-8 text with an XML declaration.
    std::string xml() const;
    // Writes xml() to `fileName` in `folder` and returns the file's path.
    std::string writeTo(const TemporaryFolder &folder, std::string_view fileName) const;

private:
    struct Item
    {
        enum class Kind { clip, bin, sequence } kind;
        std::size_t index;
    };

    std::string m_projectName;
    std::string m_version;
    std::vector<FixtureClip> m_clips;
    std::vector<FixtureBin> m_bins;
    std::vector<std::string> m_sequences;
    std::vector<Item> m_items;
};

// Children (clips, bins) wrapped in a project named "Test", written to a
// temporary file and opened by a project controller as a document opens a
// file, its clips and master-clip paths collected. A file that does not
// open fails the current test.
class LoadedProject
{
public:
    explicit LoadedProject(const std::string &children);

    const TLFCPProjectController &controller() const { return m_controller; }

private:
    TemporaryFolder m_folder;
    TLFCPProjectController m_controller;
};

// Ready-made projects.
namespace fixtures {

// Identifiers of the sample project, for assertions.
inline constexpr std::string_view clipUuid1 = "11111111-1111-1111-1111-111111111111";
inline constexpr std::string_view clipUuid2 = "22222222-2222-2222-2222-222222222222";
inline constexpr std::string_view clipUuid3 = "33333333-3333-3333-3333-333333333333";
inline constexpr std::string_view binUuidSelects = "AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA";
inline constexpr std::string_view binUuidRejects = "BBBBBBBB-BBBB-BBBB-BBBB-BBBBBBBBBBBB";

// Three clips:
//   "Interview" uuid 1, /Media/Day1/interview.mov, master clip "M1",
//     scene "1", shot/take "A", good "TRUE", label "Good Take", timebase 25
//   "Street"    uuid 2, /Media/Day1/street.mov, master clip "M2",
//     scene "2", shot/take "B", timebase 25
//   "Sunset"    uuid 3, /Media/Day2/sunset.mp4, master clip "M3",
//     scene "1", shot/take "C", lognote "wide", timebase 30
// "Interview" stands inside the bin "Selects" (uuid binUuidSelects), the
// other two at the top level, followed by the empty bin "Rejects" (uuid
// binUuidRejects).
ProjectBuilder sampleProject();
std::string sampleProjectXML();

// An xmeml file whose root's first child is a sequence.
std::string sequenceOnlyXML();

// Three clips with pathurls but no master clip ids.
std::string projectWithoutMasterClipIdsXML();

// Writers: the path of the written file.
std::string writeSampleProject(const TemporaryFolder &folder, std::string_view fileName = "Sample.xml");
std::string writeSequenceOnlyProject(const TemporaryFolder &folder,
                                     std::string_view fileName = "Sequence.xml");

} // namespace fixtures

} // namespace test
