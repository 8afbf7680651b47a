// Builds small xmeml projects with pugixml, so that every text is escaped.
#include "ProjectFixtures.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <sstream>
#include <utility>

namespace test {

namespace {

void appendText(pugi::xml_node parent, const char *name, const std::optional<std::string> &text)
{
    if (text)
        parent.append_child(name).text().set(text->c_str());
}

void appendTrackItem(pugi::xml_node clipElement, const FixtureClip &clip)
{
    if (!clip.pathurl && !clip.masterclipid)
        return;
    auto item = clipElement.append_child("media").append_child("video").append_child("track").append_child(
        "clipitem");
    item.append_attribute("id") = (clip.id + "-item").c_str();
    appendText(item, "masterclipid", clip.masterclipid);
    appendText(item, "name", clip.name);
    if (!clip.pathurl)
        return;
    auto file = item.append_child("file");
    file.append_attribute("id") = (clip.id + "-file").c_str();
    appendText(file, "name", clip.fileName);
    appendText(file, "pathurl", clip.pathurl);
    if (!clip.width && !clip.height)
        return;
    auto characteristics = file.append_child("media").append_child("video").append_child("samplecharacteristics");
    appendText(characteristics, "width", clip.width);
    appendText(characteristics, "height", clip.height);
}

void appendClip(pugi::xml_node parent, const FixtureClip &clip)
{
    auto element = parent.append_child("clip");
    element.append_attribute("id") = clip.id.c_str();
    appendText(element, "uuid", clip.uuid);
    appendText(element, "masterclipid", clip.masterclipid);
    appendText(element, "name", clip.name);
    appendText(element, "duration", clip.duration);
    if (clip.timebase)
        appendText(element.append_child("rate"), "timebase", clip.timebase);
    appendTrackItem(element, clip);
    if (clip.scene || clip.shottake || clip.lognote || clip.good) {
        auto logging = element.append_child("logginginfo");
        appendText(logging, "scene", clip.scene);
        appendText(logging, "shottake", clip.shottake);
        appendText(logging, "lognote", clip.lognote);
        appendText(logging, "good", clip.good);
    }
    if (clip.label)
        appendText(element.append_child("labels"), "label2", clip.label);
    if (clip.comment)
        appendText(element.append_child("comments"), "mastercomment1", clip.comment);
}

void appendBin(pugi::xml_node parent, const FixtureBin &bin)
{
    auto element = parent.append_child("bin");
    element.append_child("name").text().set(bin.name.c_str());
    appendText(element, "uuid", bin.uuid);
    appendText(element, "updatebehavior", bin.updateBehavior);
    auto children = element.append_child("children");
    for (const auto &clip : bin.clips)
        appendClip(children, clip);
    for (const auto &child : bin.bins)
        appendBin(children, child);
}

std::string serialise(const pugi::xml_document &document)
{
    std::ostringstream out;
    document.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

FixtureClip sampleClip(std::string id, std::string name, std::string_view uuid, std::string path,
                       std::string master)
{
    FixtureClip clip;
    clip.id = std::move(id);
    clip.name = std::move(name);
    clip.uuid = std::string(uuid);
    clip.fileName = path.substr(path.rfind('/') + 1);
    clip.pathurl = "file://localhost" + path;
    clip.masterclipid = std::move(master);
    clip.duration = "250";
    clip.width = "1920";
    clip.height = "1080";
    return clip;
}

} // namespace

ProjectBuilder::ProjectBuilder(std::string projectName, std::string version)
    : m_projectName(std::move(projectName)), m_version(std::move(version))
{
}

ProjectBuilder &ProjectBuilder::addClip(FixtureClip clip)
{
    m_items.push_back({Item::Kind::clip, m_clips.size()});
    m_clips.push_back(std::move(clip));
    return *this;
}

ProjectBuilder &ProjectBuilder::addBin(FixtureBin bin)
{
    m_items.push_back({Item::Kind::bin, m_bins.size()});
    m_bins.push_back(std::move(bin));
    return *this;
}

ProjectBuilder &ProjectBuilder::addSequence(std::string name)
{
    m_items.push_back({Item::Kind::sequence, m_sequences.size()});
    m_sequences.push_back(std::move(name));
    return *this;
}

std::string ProjectBuilder::xml() const
{
    pugi::xml_document document;
    auto declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    auto xmeml = document.append_child("xmeml");
    xmeml.append_attribute("version") = m_version.c_str();
    auto project = xmeml.append_child("project");
    project.append_child("name").text().set(m_projectName.c_str());
    auto children = project.append_child("children");
    for (const auto &item : m_items) {
        switch (item.kind) {
        case Item::Kind::clip:
            appendClip(children, m_clips[item.index]);
            break;
        case Item::Kind::bin:
            appendBin(children, m_bins[item.index]);
            break;
        case Item::Kind::sequence:
            children.append_child("sequence").append_child("name").text().set(m_sequences[item.index].c_str());
            break;
        }
    }
    return serialise(document);
}

std::string ProjectBuilder::writeTo(const TemporaryFolder &folder, std::string_view fileName) const
{
    const auto path = folder.file(fileName);
    writeFile(path, xml());
    return path;
}

namespace fixtures {

ProjectBuilder sampleProject()
{
    auto interview = sampleClip("interview", "Interview", clipUuid1, "/Media/Day1/interview.mov", "M1");
    interview.timebase = "25";
    interview.scene = "1";
    interview.shottake = "A";
    interview.good = "TRUE";
    interview.label = "Good Take";

    auto street = sampleClip("street", "Street", clipUuid2, "/Media/Day1/street.mov", "M2");
    street.timebase = "25";
    street.scene = "2";
    street.shottake = "B";

    auto sunset = sampleClip("sunset", "Sunset", clipUuid3, "/Media/Day2/sunset.mp4", "M3");
    sunset.timebase = "30";
    sunset.scene = "1";
    sunset.shottake = "C";
    sunset.lognote = "wide";

    ProjectBuilder builder("Sample");
    builder.addBin({"Selects", std::string(binUuidSelects), std::nullopt, {interview}, {}});
    builder.addClip(street);
    builder.addClip(sunset);
    builder.addBin({"Rejects", std::string(binUuidRejects), std::nullopt, {}, {}});
    return builder;
}

std::string sampleProjectXML()
{
    return sampleProject().xml();
}

std::string sequenceOnlyXML()
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<xmeml version=\"5\">\n"
           "  <sequence id=\"seq\">\n"
           "    <name>Timeline</name>\n"
           "    <media><video><track><clipitem id=\"c1\">\n"
           "      <file id=\"f1\"><pathurl>file://localhost/Media/a.mov</pathurl></file>\n"
           "    </clipitem></track></video></media>\n"
           "  </sequence>\n"
           "</xmeml>\n";
}

std::string projectWithoutMasterClipIdsXML()
{
    ProjectBuilder builder("Loose");
    for (int index = 1; index <= 3; ++index) {
        FixtureClip clip;
        clip.id = "loose" + std::to_string(index);
        clip.name = "Loose " + std::to_string(index);
        clip.pathurl = "file://localhost/Media/loose" + std::to_string(index) + ".mov";
        builder.addClip(clip);
    }
    return builder.xml();
}

std::string writeSampleProject(const TemporaryFolder &folder, std::string_view fileName)
{
    return sampleProject().writeTo(folder, fileName);
}

std::string writeSequenceOnlyProject(const TemporaryFolder &folder, std::string_view fileName)
{
    const auto path = folder.file(fileName);
    writeFile(path, sequenceOnlyXML());
    return path;
}

} // namespace fixtures

LoadedProject::LoadedProject(const std::string &children)
{
    const std::string path = m_folder.file("project.xml");
    writeFile(path, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xmeml version=\"5\"><project>"
                    "<name>Test</name><children>" + children + "</children></project></xmeml>");
    EXPECT_TRUE(m_controller.setXmlDocFromFilePath(path));
    m_controller.collectClipsAndMasterClipPaths();
}

} // namespace test
