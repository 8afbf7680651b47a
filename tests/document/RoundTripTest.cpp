// Saving projects as exporters in the wild write them: the saved file reads
// back as the original with the new bins at the end, markup and all.
#include "MyDocument.h"

#include "TLBinRangeItem.h"
#include "TLSmartBinFilter.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeParser.h"
#include "TestSupport.h"
#include "XMLTreeDifference.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using test::childrenOf;
using test::describe;
using test::treeDifference;
using test::visible;

// Files as exporters write them, each with its exporter's habits.
const std::vector<std::string> corpus = {
    "newsroom-crlf.xml",           // stamp comment, CRLF, two spaces, clips without uuid
    "utf8-bom.xml",                // byte-order mark, bare declaration, no DOCTYPE
    "carriage-returns.xml",        // &#13;, &#9; and &#13;&#10; in names and log notes
    "cdata-notes.xml",             // "]]>" split over two sections, "<" and "&" in one
    "utf16le-bom.xml",             // UTF-16 LE with its byte-order mark
    "latin1.xml",                  // ISO-8859-1
    "processing-instructions.xml", // PIs and comments around the root and in clips
    "empty-elements.xml",          // <scene></scene>, a lone blank; no declaration
    "escaped-text.xml",            // &amp; &lt; &gt; in text and attributes, é, 日本
};

// How the tests read a file back: every kind of node, and the white space
// that is an element's only content.
constexpr unsigned int readBackFlags = pugi::parse_default | pugi::parse_comments | pugi::parse_pi |
                                       pugi::parse_declaration | pugi::parse_doctype | pugi::parse_ws_pcdata_single;
constexpr std::int64_t sceneCriterion = 7;
constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";

using Document = std::unique_ptr<pugi::xml_document>;
using ClipsByUUID = std::map<std::string, pugi::xml_node>;

Document readBack(const std::string &bytes)
{
    auto document = std::make_unique<pugi::xml_document>();
    const pugi::xml_parse_result result = document->load_buffer(bytes.data(), bytes.size(), readBackFlags);
    EXPECT_TRUE(result) << result.description() << " at offset " << result.offset;
    return document;
}

// The concatenated text and CDATA inside a node.
std::string textOf(pugi::xml_node node)
{
    if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata)
        return node.value();
    std::string text;
    for (const pugi::xml_node child : node.children())
        text += textOf(child);
    return text;
}

std::size_t carriageReturnsIn(pugi::xml_node node)
{
    const std::string text = node.type() == pugi::node_pcdata ? node.value() : "";
    std::size_t count = std::count(text.begin(), text.end(), '\r');
    for (const pugi::xml_node child : node.children())
        count += carriageReturnsIn(child);
    return count;
}

std::size_t occurrences(std::string_view text, std::string_view part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

bool startsWithByteOrderMark(std::string_view bytes)
{
    return bytes.starts_with(utf8Mark) || bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

bool hasDoctype(const pugi::xml_document &document)
{
    return std::any_of(document.children().begin(), document.children().end(),
                       [](pugi::xml_node node) { return node.type() == pugi::node_doctype; });
}

// A range series, a smart bin of every clip and one smart range per scene.
TLNodeList treeFor(const TLFCPProjectController &controller)
{
    TLNodeList tree;
    for (int index = 0; index < 2; ++index)
        tree.push_back(TLBinRangeItem::create("Reel " + std::to_string(index + 1), "Reel [1-2]", nullptr, 2, index));
    tree.push_back(
        TLSmartBinParser::binFromFilterArray({TLSmartBinFilter::create(0, 0, "")}, "Everything", 0, controller));
    for (const auto &item : TLSmartRangeParser::arrayForCriteria(sceneCriterion, controller))
        tree.push_back(item);
    return tree;
}

// One session: a copy of a corpus file opened, given the tree and saved
// `saveCount` times; the bytes of the original and after each save.
struct Session
{
    std::string path;
    std::string original;
    std::vector<std::string> saves;
    TLNodeList tree;
};

Session saveInOneSession(const test::TemporaryFolder &folder, const std::string &name, int saveCount)
{
    Session session{folder.file(name), {}, {}, {}};
    fs::copy_file(fs::path(CORVALE_ROUND_TRIP_CORPUS_DIR) / name, session.path);
    session.original = test::readFile(session.path);
    MyDocument document;
    if (!document.readFromURL(session.path)) {
        ADD_FAILURE() << "the file did not open";
        return session;
    }
    session.tree = treeFor(*document.mediaController());
    document.setDataArray(session.tree);
    for (int save = 0; save < saveCount; ++save) {
        EXPECT_TRUE(document.writeToURLOnThread(MyDocumentSaveRequest{session.path, 0}));
        session.saves.push_back(test::readFile(session.path));
    }
    return session;
}

// The project's own clips, by their uuid child.
ClipsByUUID clipsByUUID(const pugi::xml_document &project)
{
    ClipsByUUID clips;
    for (const pugi::xml_node clip : project.child("xmeml").child("project").child("children").children("clip")) {
        if (const pugi::xml_node uuid = clip.child("uuid"))
            clips.emplace(uuid.text().get(), clip);
    }
    return clips;
}

// The bin written for `node`: its name, its identifier, a copy of the
// original clip of each media item that has one, then `carried` as text.
std::string binDifference(pugi::xml_node bin, const TLBinNode &node, const ClipsByUUID &originals,
                          const std::string &carried)
{
    const std::string at = "bin " + visible(node.binName()) + ": ";
    if (std::string_view(bin.name()) != "bin" || node.binName() != bin.child("name").text().get())
        return at + "found " + describe(bin) + " named " + visible(bin.child("name").text().get());
    if (node.uuid().value_or("") != bin.child("uuid").text().get())
        return at + "uuid " + visible(bin.child("uuid").text().get());
    std::vector<pugi::xml_node> held = childrenOf(bin.child("children"));
    std::string heldText;
    while (!held.empty() && held.back().type() == pugi::node_pcdata) {
        heldText.insert(0, held.back().value());
        held.pop_back();
    }
    if (heldText != carried)
        return at + "carried text " + visible(heldText) + ", expected " + visible(carried);
    std::vector<pugi::xml_node> expected;
    for (const TLBinNodePtr &item : *node.children()) {
        const auto original = originals.find(item->uuid().value_or(""));
        if (original != originals.end())
            expected.push_back(original->second);
    }
    if (held.size() != expected.size())
        return at + std::to_string(held.size()) + " children, expected " + std::to_string(expected.size());
    for (std::size_t index = 0; index < held.size(); ++index) {
        if (const std::string difference = treeDifference(expected[index], held[index]); !difference.empty())
            return at + difference;
    }
    return {};
}

// Checks a saved file against its original: the tree's bins at the end of
// the project's children, each holding what `carried` gives for it as text
// after its clips, and everything else as it was.
template <typename CarriedText>
void expectOriginalPlusBins(const Session &session, const std::string &saved, CarriedText &&carried)
{
    const Document original = readBack(session.original);
    const Document written = readBack(saved);
    pugi::xml_node children = written->child("xmeml").child("project").child("children");
    std::vector<pugi::xml_node> bins = childrenOf(children);
    ASSERT_GE(bins.size(), session.tree.size()) << "the project lost children";
    bins.erase(bins.begin(), bins.end() - static_cast<std::ptrdiff_t>(session.tree.size()));
    const ClipsByUUID originals = clipsByUUID(*original);
    for (std::size_t index = 0; index < bins.size(); ++index) {
        const TLBinNode &node = *session.tree[index];
        EXPECT_EQ(binDifference(bins[index], node, originals, carried(node)), "");
        children.remove_child(bins[index]);
    }
    EXPECT_EQ(treeDifference(*original, *written), "");

    EXPECT_EQ(saved.starts_with(utf8Mark), startsWithByteOrderMark(session.original));
    EXPECT_EQ(saved.find("<!DOCTYPE") != std::string::npos, hasDoctype(*original));
    EXPECT_EQ(saved.find('\r'), std::string::npos) << "a carriage return written as it is";
    EXPECT_GE(occurrences(saved, "&#13;"), carriageReturnsIn(*original));
}

} // namespace

// Each file saved twice in one session: the first save adds the bins, the
// second replaces them, each new bin ending with the text of its earlier
// self's children, which must not break it whatever the clips held.
TEST(RoundTripTest, EveryFileOfTheCorpusKeepsItselfAndItsBinsOverTwoSaves)
{
    for (const std::string &name : corpus) {
        SCOPED_TRACE(name);
        const test::TemporaryFolder folder;
        const Session session = saveInOneSession(folder, name, 2);
        if (session.saves.size() != 2)
            continue;
        const auto isSmartRange = [](const TLBinNodePtr &node) {
            return node->kind() == TLBinNodeKind::smartRangeItem;
        };
        ASSERT_GE(std::count_if(session.tree.begin(), session.tree.end(), isSmartRange), 2) << "scenes make no bins";
        expectOriginalPlusBins(session, session.saves[0], [](const TLBinNode &) { return std::string(); });

        const Document first = readBack(session.saves[0]);
        std::map<std::string, std::string> firstTexts;
        for (const pugi::xml_node bin : first->child("xmeml").child("project").child("children").children("bin"))
            firstTexts[bin.child("uuid").text().get()] = textOf(bin.child("children"));
        expectOriginalPlusBins(session, session.saves[1], [&firstTexts](const TLBinNode &node) {
            return firstTexts[node.uuid().value_or("")];
        });

        const Document second = readBack(session.saves[1]);
        std::map<std::string, int> occurrencesOfUUID;
        for (const pugi::xpath_node uuid : second->select_nodes("//bin/uuid"))
            ++occurrencesOfUUID[uuid.node().text().get()];
        MyDocument reopened;
        ASSERT_TRUE(reopened.readFromURL(session.path));
        std::vector<std::string> names;
        for (const TLBinNodePtr &node : session.tree) {
            EXPECT_EQ(occurrencesOfUUID[node->uuid().value_or("")], 1) << node->binName();
            names.push_back(node->binName());
        }
        std::vector<std::string> reopenedNames;
        for (const TLBinNodePtr &node : *reopened.dataArray())
            reopenedNames.push_back(node->binName());
        EXPECT_EQ(reopenedNames, names);
    }
}
