// URI references split into scheme and path, and file paths read from file URLs.
#include "TLURLParser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string describe(const std::optional<TLURLParser::Components> &components)
{
    return components ? components->scheme + "|" + components->path : "invalid";
}

std::string split(const char *text)
{
    return describe(TLURLParser::parseURIReference(text));
}

} // namespace

TEST(TLURLParserTest, ParseURIReferenceKeepsSchemeAndEncodedPath)
{
    EXPECT_EQ(split("file://localhost/a%20b.mov?x=1#f"), "file|/a%20b.mov");
    EXPECT_EQ(split("FILE:/a"), "FILE|/a");
    EXPECT_EQ(split("file://user@[::1]:80/p"), "file|/p");
    EXPECT_EQ(split("file://h:/p"), "file|/p");
    EXPECT_EQ(split("x+y.z-1:path"), "x+y.z-1|path");
    EXPECT_EQ(split("mailto:me@x.org"), "mailto|me@x.org");
    EXPECT_EQ(split("a:b:c"), "a|b:c");
    // A colon after the first slash belongs to a relative path.
    EXPECT_EQ(split("a/b:c"), "|a/b:c");
    EXPECT_EQ(split("//host"), "|");
    EXPECT_EQ(split("#f"), "|");
    EXPECT_EQ(split(""), "|");

    for (const char *bad : {":b", "1a:b", "file://a@b@c/p", "file://[::1/p", "file://h:8o/p", "?q[1]", "a[1]",
                            "a b", "a\"b", "a<b>", "a\\b", "a{b}", "caf\xC3\xA9", "a%", "a%G0", "a#b#c"})
        EXPECT_EQ(split(bad), "invalid") << bad;
    EXPECT_EQ(describe(TLURLParser::parseURIReference(std::string_view("a\0b", 3))), "invalid");
}

TEST(TLURLParserTest, FilePathForURLDecodesTheLocalPath)
{
    const auto filename = [](const char *url) { return TLURLParser::filePathForURL(url); };
    EXPECT_EQ(filename("file://localhost/Volumes/Media/a%20b.mov"), "/Volumes/Media/a b.mov");
    EXPECT_EQ(filename("file:///a/b.mov"), "/a/b.mov");
    EXPECT_EQ(filename("FILE:/a/caf%C3%A9.mov?x=1#frag"), "/a/café.mov");
    EXPECT_EQ(filename("file://[::1]:80/a/folder/"), "/a/folder");
    EXPECT_EQ(filename("file:///"), "/");
    EXPECT_EQ(filename("/Volumes/a%26b.mov"), "/Volumes/a&b.mov");
    EXPECT_EQ(filename("media/a.mov"), "media/a.mov");
    EXPECT_EQ(filename("http://server/media/h%20d.mov?x#y"), "/media/h d.mov");
    for (const char *bad : {"file://localhost/Volumes/a b.mov", "file:///a/50%.mov", "file:///a/%4.mov",
                            "file:///caf\xC3\xA9.mov", "http://host", "1a:b", "file:///a#b#c",
                            "file://host:port/a", "file:///a[1].mov", "file:///a%00b", "file:///a%FF", "",
                            "file://localhost", "file:///a\"b", "file:///%C3%28"})
        EXPECT_EQ(filename(bad), std::nullopt) << bad;
}
