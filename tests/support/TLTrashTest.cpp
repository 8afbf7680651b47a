// Reserving names in the desktop Trash: taken names, records left by others
// and a Trash that cannot take records.
#include "TLTrash.h"

#include "TLLocalPaths.h"
#include "TestSupport.h"
#include "Unprivileged.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string numbered(const std::string &name, long attempt)
{
    return attempt == 1 ? name : name + "-" + std::to_string(attempt);
}

} // namespace

TEST(TLTrashTest, ReservesTheFirstNameWhoseRecordAndItemAreBothFree)
{
    const fs::path trash = TLTrash::folder();
    EXPECT_EQ((trash / "files").string(), TLLocalPaths::trashDirectory());
    std::string error;
    const auto names = [](long attempt) { return numbered("Slot Test", attempt); };

    const auto first = TLTrash::reserveSlot("relative/Slot Test", names, error);
    ASSERT_TRUE(first) << error;
    EXPECT_EQ(first->name, "Slot Test");
    EXPECT_EQ(first->itemPath, (trash / "files" / "Slot Test").string());
    const std::string record = test::readFile(first->infoPath);
    EXPECT_EQ(record.rfind("[Trash Info]\nPath=/", 0), 0u) << "the path is made absolute: " << record;
    EXPECT_NE(record.find("/relative/Slot%20Test\n"), std::string::npos) << record;

    // An item whose record another program lost still holds its name.
    test::writeFile(trash / "files" / "Slot Test-2", "orphan");
    const auto second = TLTrash::reserveSlot("/elsewhere/Slot Test", names, error);
    ASSERT_TRUE(second) << error;
    EXPECT_EQ(second->name, "Slot Test-3");
    EXPECT_FALSE(fs::exists(trash / "info" / "Slot Test-2.trashinfo"));

    TLTrash::releaseSlot(*first);
    EXPECT_FALSE(fs::exists(first->infoPath));
    TLTrash::releaseSlot(*first);
    EXPECT_TRUE(fs::exists(second->infoPath));
}

TEST(TLTrashTest, FailsWithAReasonAndLeavesNothingBehind)
{
    std::string error;
    const auto names = [](long attempt) { return numbered("Refused", attempt); };
    EXPECT_FALSE(TLTrash::reserveSlot("", names, error));
    EXPECT_FALSE(error.empty());
    for (const std::string &name : std::vector<std::string>{"", ".", "..", "../info", std::string("a\0b", 3)}) {
        error.clear();
        EXPECT_FALSE(TLTrash::reserveSlot("/somewhere/x", [&](long) { return name; }, error)) << name;
        EXPECT_NE(error.find("cannot be a name in the Trash"), std::string::npos) << error;
    }

    test::UnprivilegedFolder home;
    EXPECT_EQ(test::runUnprivileged([&]() -> std::string {
                  ::setenv("XDG_DATA_HOME", home.path().c_str(), 1);
                  const fs::path info = fs::path(TLTrash::folder()) / "info";
                  fs::create_directories(info);
                  fs::permissions(info, fs::perms::owner_read | fs::perms::owner_exec);
                  std::string reason;
                  if (TLTrash::reserveSlot("/somewhere/Refused", names, reason))
                      return "a slot was reserved in a read-only folder";
                  if (reason.rfind("cannot create " + (info / "Refused.trashinfo").string() + ": ", 0) != 0)
                      return "unexpected reason: " + reason;
                  return fs::exists(info / "Refused.trashinfo") ? "a record was left behind" : "";
              }),
              "");
}
