// Tests of the xmeml query helper, on inline xmeml fixtures.
#include "TLXMLParser.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

const char *const kClip = R"(<xmeml><clip id="master%201">
  <name>Interview</name>
  <uuid>A1B2</uuid>
  <logginginfo><scene>Scene%201</scene><shottake>50%</shottake><lognote>caf&amp;#233;</lognote>
    <description>café</description></logginginfo>
  <media>
    <audio><track><clipitem><file><pathurl>file:///a1.wav</pathurl></file></clipitem></track>
           <track><clipitem><file><pathurl>file:///a2.wav</pathurl></file></clipitem></track></audio>
    <video><track><clipitem><file><pathurl>file:///v1.mov</pathurl></file></clipitem>
                  <clipitem><file><pathurl>file:///v2.mov</pathurl></file></clipitem></track></video>
    <audio><track><clipitem><file><pathurl>file:///second-audio.wav</pathurl></file></clipitem></track></audio>
  </media>
</clip></xmeml>)";

std::string attributeId(const pugi::xml_node &node)
{
    return node.attribute("id").value();
}

std::vector<std::string> values(const std::optional<TLXMLNodeList> &nodes)
{
    std::vector<std::string> texts;
    for (const pugi::xpath_node &node : nodes.value_or(TLXMLNodeList()))
        texts.push_back(TLXMLParser::stringValue(node));
    return texts;
}

} // namespace

TEST(TLXMLParserTest, EscapeQueryStringWorksOnUTF16Units)
{
    EXPECT_EQ(TLXMLParser::escapeQueryString("café"), "caf&#233;");
    EXPECT_EQ(TLXMLParser::escapeQueryString("a&amp;b"), "a&amp;b");
    EXPECT_EQ(TLXMLParser::escapeQueryString("[.='a&b']"), "[.='a&amp;b']");
    EXPECT_EQ(TLXMLParser::escapeQueryString("x&amp;"), "x&amp;");
    EXPECT_EQ(TLXMLParser::escapeQueryString("abc&"), "abc&amp;");  // four units: no look-ahead
    EXPECT_EQ(TLXMLParser::escapeQueryString("ab&amp"), "ab&amp;amp"); // "&" in the last four units
    EXPECT_EQ(TLXMLParser::escapeQueryString("a\tb\nc\rd"), "abc&#13;d");
    EXPECT_EQ(TLXMLParser::escapeQueryString("a\x14" "b\x1f"), "a\x14" "b\x1f");
    EXPECT_EQ(TLXMLParser::escapeQueryString("\xC2\x9F"), "\xC2\x9F"); // U+009F stays below 160
    EXPECT_EQ(TLXMLParser::escapeQueryString("\xF0\x9F\x98\x80"), "&#55357;&#56832;");
    EXPECT_EQ(TLXMLParser::escapeQueryString("a\xFF" "b\xC3"), "a&#65533;b&#65533;");
    EXPECT_EQ(TLXMLParser::escapeQueryString(""), "");

    for (const char *query : {"&", "a&", "a&b", "\xC3\xA9&"})
        EXPECT_THROW(TLXMLParser::escapeQueryString(query), std::out_of_range) << query;
    pugi::xml_document document;
    EXPECT_THROW(TLXMLParser::stringValueForQuery("a&", document), std::out_of_range);
}

TEST(TLXMLParserTest, QueriesAreEvaluatedEscaped)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(kClip));
    const pugi::xml_node clip = document.child("xmeml").child("clip");
    // "café" is looked for as "caf&#233;", so only the literal entity text matches.
    EXPECT_EQ(attributeId(TLXMLParser::nodeForQuery("./logginginfo/*[text()='café']/../..", clip).node()),
              "master%201");
    EXPECT_EQ(TLXMLParser::stringValueForQuery("./logginginfo/*[text()='café']", clip), "caf&#233;");
    EXPECT_EQ(TLXMLParser::evaluateFirstNode("./logginginfo/*[text()='café']", clip).node().name(),
              std::string("description"));
}

TEST(TLXMLParserTest, NothingMatchingIsNilOrEmptyAsEachOperationSays)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(kClip));
    const pugi::xml_node clip = document.child("xmeml").child("clip");
    EXPECT_EQ(TLXMLParser::stringValuesForQuery("./missing", clip), std::nullopt);
    EXPECT_EQ(TLXMLParser::stringValueForQuery("./missing", clip), std::nullopt);
    EXPECT_TRUE(TLXMLParser::queryNodes({pugi::xpath_node(clip)}, "./missing").empty());
    ASSERT_TRUE(TLXMLParser::nodesForQuery("./missing", clip).has_value());
    EXPECT_TRUE(TLXMLParser::nodesForQuery("./missing", clip)->empty());
    EXPECT_FALSE(TLXMLParser::nodeForQuery("./missing", clip));
    EXPECT_TRUE(TLXMLParser::nodesForQuery("./name", pugi::xml_node())->empty());

    EXPECT_EQ(TLXMLParser::stringValuesForQuery(".//pathurl/text()", clip)->size(), 5u);
    EXPECT_EQ(TLXMLParser::stringValueForQuery("(.//pathurl)[2]", clip), "file:///a2.wav");
    EXPECT_EQ(TLXMLParser::evaluateString("count(.//clipitem)", clip), "5");
    EXPECT_EQ(TLXMLParser::queryNodes({pugi::xpath_node(clip), pugi::xpath_node(clip)}, "./name").size(), 2u);
}

TEST(TLXMLParserTest, MalformedAndHostileQueriesAreErrorsNotExceptions)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(kClip));
    const pugi::xml_node clip = document.child("xmeml").child("clip");
    std::string hugeQuery = ".";
    for (int step = 0; step < 24; ++step)
        hugeQuery += "/(a | b)";
    for (const std::string &query :
         {std::string("./name["), std::string("./media[1]/(video[1] | )/track"), std::string("a/(b | c)[1]"),
          std::string("./(/xmeml | name)"), std::string("./name[text()='open"), std::string("count(.//clip)"),
          std::string("///"), hugeQuery}) {
        std::string error;
        EXPECT_EQ(TLXMLParser::evaluateQuery(query, clip, &error), std::nullopt) << query;
        EXPECT_FALSE(error.empty()) << query;
        EXPECT_EQ(TLXMLParser::nodesForQuery(query, clip), std::nullopt) << query;
        EXPECT_EQ(TLXMLParser::stringValueForQuery(query, clip), std::nullopt) << query;
        EXPECT_FALSE(TLXMLParser::nodeForQuery(query, clip)) << query;
        EXPECT_TRUE(TLXMLParser::queryNodes({pugi::xpath_node(clip)}, query).empty()) << query;
    }
    std::string nulError;
    EXPECT_EQ(TLXMLParser::evaluateQuery(std::string("./name\0/x", 9), clip, &nulError), std::nullopt);
    EXPECT_FALSE(nulError.empty());
    // The error is cached, and so is reported the same way every time.
    std::string first, second;
    TLXMLParser::evaluateQuery("./name[", clip, &first);
    TLXMLParser::evaluateQuery("./name[", clip, &second);
    EXPECT_EQ(first, second);
}

TEST(TLXMLParserTest, UnionStepsAreSpelledOutInDocumentOrder)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(kClip));
    const pugi::xml_node clip = document.child("xmeml").child("clip");
    // Audio comes before video in the tree, and a second audio after it.
    EXPECT_EQ(values(TLXMLParser::evaluateQuery(
                  "./media[1]/(video[1] | audio[1])/track/clipitem/file[1]/pathurl[1]/text()", clip)),
              (std::vector<std::string>{"file:///a1.wav", "file:///a2.wav", "file:///v1.mov", "file:///v2.mov"}));
    EXPECT_EQ(values(TLXMLParser::evaluateQuery("./media[1]/(video | audio[2] | audio[1])/track[1]/clipitem[1]//pathurl",
                                                clip)),
              (std::vector<std::string>{"file:///a1.wav", "file:///v1.mov", "file:///second-audio.wav"}));
    EXPECT_EQ(TLXMLParser::evaluateFirstNode("./media[1]/(video[1] | audio[1])/track/clipitem/file[1]/pathurl", clip)
                  .node().text().get(),
              std::string("file:///a1.wav"));
    // Two union steps, a union step inside a predicate and after "//", and
    // brackets inside a literal that must not confuse the rewriting.
    EXPECT_EQ(TLXMLParser::evaluateQuery("./(media)/(video | audio)/(track)/clipitem", clip)->size(), 5u);
    EXPECT_EQ(TLXMLParser::evaluateQuery("./media/*[track/(clipitem | x)/file/pathurl = 'file:///v2.mov']", clip)
                  ->front().node().name(),
              std::string("video"));
    EXPECT_EQ(values(TLXMLParser::evaluateQuery(".//(pathurl[. = 'x)|(y'] | name)", clip)),
              (std::vector<std::string>{"Interview"}));
    EXPECT_EQ(TLXMLParser::evaluateString("count(./media/(video | audio)//pathurl) + 1", clip), "6");
    EXPECT_EQ(TLXMLParser::nodesForQuery("./media[1]/(video[1] | audio[1])/track", clip)->size(), 3u);
}

TEST(TLXMLParserTest, CachedQueriesGiveTheSameResultsFromSeveralThreads)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(kClip));
    const pugi::xml_node clip = document.child("xmeml").child("clip");
    const std::vector<std::string> queries = {
        "./media[1]/(video[1] | audio[1])/track/clipitem/file[1]/pathurl[1]/text()", ".//pathurl", "./name[1]/text()",
        "./broken[", "./logginginfo[1]/scene[1]/text()"};
    std::vector<std::vector<std::string>> expected;
    for (const std::string &query : queries)
        expected.push_back(values(TLXMLParser::evaluateQuery(query + " ", clip)));

    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 500; ++round) {
                const std::size_t index = std::size_t(round + thread) % queries.size();
                if (values(TLXMLParser::evaluateQuery(queries[index], clip)) != expected[index])
                    ++mismatches[std::size_t(thread)];
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

TEST(TLXMLParserTest, StringValueGathersDescendantText)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(R"(<a x="1">one<b>two<![CDATA[<three>]]><!--no--></b>four</a>)",
                                     pugi::parse_default | pugi::parse_comments));
    const pugi::xml_node a = document.child("a");
    EXPECT_EQ(TLXMLParser::stringValue(pugi::xpath_node(a)), "onetwo<three>four");
    EXPECT_EQ(TLXMLParser::stringValue(pugi::xpath_node(document)), "onetwo<three>four");
    EXPECT_EQ(TLXMLParser::stringValue(pugi::xpath_node(a.attribute("x"), a)), "1");
    EXPECT_EQ(TLXMLParser::stringValue(pugi::xpath_node(a.first_child())), "one");
    EXPECT_EQ(TLXMLParser::stringValue(pugi::xpath_node()), "");
}

TEST(TLXMLParserTest, NamesUuidsAndIdsArePercentDecoded)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(R"(<xmeml>
      <clip id="c%201"><media><clipitem><name>Nested</name><uuid>U-2</uuid></clipitem></media></clip>
      <clip id="only%20id"/>
      <clip id="50%"><name>Scene%201</name></clip>
      <clip id="%C3%A9"><name>50%</name></clip>
      <clip><name>caf%C3%A9</name></clip>
    </xmeml>)"));
    std::vector<pugi::xml_node> clips;
    for (const pugi::xml_node clip : document.child("xmeml").children("clip"))
        clips.push_back(clip);
    EXPECT_EQ(TLXMLParser::nameForNode(clips[0], true), std::nullopt);
    EXPECT_EQ(TLXMLParser::nameForNode(clips[0]), "Nested");
    EXPECT_EQ(TLXMLParser::uuidForNode(clips[0], true), std::nullopt);
    EXPECT_EQ(TLXMLParser::uuidForNode(clips[0]), "U-2");
    EXPECT_EQ(TLXMLParser::nameForNode(clips[1]), "only id");
    EXPECT_EQ(TLXMLParser::nameForNode(clips[1], true), std::nullopt);
    EXPECT_EQ(TLXMLParser::nameForNode(clips[2]), "Scene 1");
    EXPECT_EQ(TLXMLParser::nameForNode(clips[3]), "50%");
    EXPECT_EQ(TLXMLParser::nameForNode(clips[4]), "caf%C3%A9");
    EXPECT_EQ(TLXMLParser::nameForNode(pugi::xml_node()), std::nullopt);

    EXPECT_EQ(TLXMLParser::idAttributeForNode(clips[0]), "c 1");
    EXPECT_EQ(TLXMLParser::idAttributeForNode(clips[2]), std::nullopt);
    EXPECT_EQ(TLXMLParser::idAttributeForNode(clips[3]), std::nullopt);
    EXPECT_EQ(TLXMLParser::idAttributeForNode(clips[4]), std::nullopt);
}

TEST(TLXMLParserTest, FilenameFromPathURLStringParsesTheURL)
{
    // The URL cases themselves are covered by TLURLParserTest.
    EXPECT_EQ(TLXMLParser::filenameFromPathURLString(std::nullopt), std::nullopt);
    EXPECT_EQ(TLXMLParser::filenameFromPathURLString("file://localhost/Volumes/Media/a%20b.mov"),
              "/Volumes/Media/a b.mov");
    EXPECT_EQ(TLXMLParser::filenameFromPathURLString("http://server/media/h.mov"), "/media/h.mov");
    EXPECT_EQ(TLXMLParser::filenameFromPathURLString(""), std::nullopt);
}

TEST(TLXMLParserTest, TreeWalksStopWhereTheyShould)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(
        "<xmeml><bin><children><clip><media><name/></media></clip></children></bin><after/></xmeml>"));
    const pugi::xml_node name = document.select_node("//name").node();
    EXPECT_EQ(std::string(TLXMLParser::parentWithName(name, "bin").name()), "bin");
    EXPECT_FALSE(TLXMLParser::parentWithName(name, "bin", std::vector<std::string>{"children"}));
    EXPECT_FALSE(TLXMLParser::parentWithName(name, "clip", std::vector<std::string>{"clip"}));
    EXPECT_FALSE(TLXMLParser::parentWithName(name, "sequence"));
    EXPECT_FALSE(TLXMLParser::parentWithName(name, ""));
    EXPECT_EQ(std::string(TLXMLParser::nextSiblingForNode(name).name()), "after");
    EXPECT_FALSE(TLXMLParser::nextSiblingForNode(document.child("xmeml").child("after")));
    EXPECT_FALSE(TLXMLParser::nextSiblingForNode(pugi::xml_node()));
}

TEST(TLXMLParserTest, AffectedNodesFollowTransitionsOnBothSides)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(R"(<track>
      <transitionitem id="t0"><start>0</start><end>4</end></transitionitem>
      <clipitem id="a"><start>-1</start><end>10</end></clipitem>
      <clipitem id="b"><start>10</start><end>-1</end></clipitem>
      <transitionitem id="t1"><start>18</start><end>22</end></transitionitem>
      <clipitem id="c"><start>-1</start><end>-1</end></clipitem>
      <transitionitem id="t2"><start>30</start><end>34</end></transitionitem>
      <clipitem id="d"><start>-1</start><end>50</end></clipitem>
      <clipitem id="e"><start>50x</start><end>-1</end></clipitem>
      <transitionitem id="t3"><start>60</start><end>64</end></transitionitem>
      <enabled>TRUE</enabled>
    </track>)"));
    const auto chain = [&](const char *id, std::int64_t expectedStart, std::int64_t expectedEnd) {
        std::int64_t start = 99, end = 99;
        const pugi::xml_node clip = document.child("track").find_child_by_attribute("id", id);
        std::string ids;
        for (const pugi::xml_node &node : TLXMLParser::affectedNodesForClip(clip, &start, &end))
            ids += attributeId(node) + " ";
        EXPECT_EQ(start, expectedStart) << id;
        EXPECT_EQ(end, expectedEnd) << id;
        return ids;
    };
    EXPECT_EQ(chain("a", 0, 10), "t0 a ");
    EXPECT_EQ(chain("b", 10, 50), "b t1 c t2 d ");
    EXPECT_EQ(chain("c", 10, 50), "b t1 c t2 d ");
    EXPECT_EQ(chain("d", 10, 50), "b t1 c t2 d ");
    EXPECT_EQ(chain("e", 50, 64), "e t3 ");
    EXPECT_EQ(TLXMLParser::affectedNodesForClip(document.child("track").child("clipitem")).size(), 2u);
}

TEST(TLXMLParserTest, NodesFromQueriesKeepsFirstSeenOrderWithoutDuplicates)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(kClip));
    const pugi::xml_node clip = document.child("xmeml").child("clip");
    const std::vector<std::string> queries = {"./uuid", "./broken[", "./name | ./uuid", "./@id"};
    const TLXMLNodeList nodes = TLXMLParser::nodesFromQueries(clip, queries);
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(std::string(nodes[0].node().name()), "uuid");
    EXPECT_EQ(std::string(nodes[1].node().name()), "name");
    EXPECT_EQ(std::string(nodes[2].attribute().name()), "id");
    EXPECT_TRUE(TLXMLParser::nodesFromQueries(clip, {}).empty());
}

TEST(TLXMLParserTest, HundredThousandDeepDocumentNeedsNoRecursion)
{
    constexpr int kDepth = 100000;
    std::string xml = "<project>";
    for (int level = 0; level < kDepth; ++level)
        xml += "<clip>";
    xml += "leaf";
    for (int level = 0; level < kDepth; ++level)
        xml += "</clip>";
    xml += "<after/></project>";
    pugi::xml_document document;
    ASSERT_TRUE(document.load_buffer(xml.data(), xml.size()));

    const std::optional<TLXMLNodeList> clips = TLXMLParser::evaluateQuery(".//clip", document);
    ASSERT_TRUE(clips.has_value());
    ASSERT_EQ(clips->size(), std::size_t(kDepth));
    const pugi::xml_node deepest = clips->back().node();
    EXPECT_EQ(TLXMLParser::stringValue(pugi::xpath_node(document)), "leaf");
    EXPECT_EQ(std::string(TLXMLParser::nextSiblingForNode(deepest).name()), "after");
    EXPECT_EQ(std::string(TLXMLParser::parentWithName(deepest, "project").name()), "project");
    EXPECT_FALSE(TLXMLParser::parentWithName(deepest, "bin"));
}
