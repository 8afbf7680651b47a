// Path components and extensions taken from path text.
#include "TLPathText.h"

#include <gtest/gtest.h>

TEST(TLPathTextTest, LastPathComponentIgnoresTrailingSlashes)
{
    EXPECT_EQ(TLPathText::lastPathComponent("/a/b.mov"), "b.mov");
    EXPECT_EQ(TLPathText::lastPathComponent("/a/b.mov//"), "b.mov");
    EXPECT_EQ(TLPathText::lastPathComponent("b.mov"), "b.mov");
    EXPECT_EQ(TLPathText::lastPathComponent("/"), "/");
    EXPECT_EQ(TLPathText::lastPathComponent("///"), "/");
    EXPECT_EQ(TLPathText::lastPathComponent(""), "");
}

TEST(TLPathTextTest, DeletingLastPathComponentKeepsTheRoot)
{
    EXPECT_EQ(TLPathText::deletingLastPathComponent("/a/b.mov"), "/a");
    EXPECT_EQ(TLPathText::deletingLastPathComponent("/a//b.mov/"), "/a");
    EXPECT_EQ(TLPathText::deletingLastPathComponent("/b.mov"), "/");
    EXPECT_EQ(TLPathText::deletingLastPathComponent("b.mov"), "");
    EXPECT_EQ(TLPathText::deletingLastPathComponent(""), "");
}

TEST(TLPathTextTest, PathExtensionNeedsADotAfterTheFirstCharacter)
{
    EXPECT_EQ(TLPathText::pathExtension("/a/b.tar.gz"), "gz");
    EXPECT_EQ(TLPathText::pathExtension("/a.d/b"), "");
    EXPECT_EQ(TLPathText::pathExtension("/a/.profile"), "");
    EXPECT_EQ(TLPathText::pathExtension("/a/b."), "");
    EXPECT_EQ(TLPathText::pathExtension(""), "");
}
