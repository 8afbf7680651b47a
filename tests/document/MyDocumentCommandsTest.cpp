// The editing commands of a document: range series, smart bins, smart
// ranges, removal, selection, refusals, change counts and outline answers.
#include "MyDocument.h"
#include "ProjectFixtures.h"
#include "RecordingAlertPresenter.h"
#include "RecordingDocumentView.h"
#include "TLAlert.h"
#include "TLBinRangeItem.h"
#include "TLMediaItem.h"
#include "TLRegularBin.h"

#include <gtest/gtest.h>

namespace {

using EditResult = MyDocument::EditResult;

TLBinNodePtr regularBin(const std::string &name)
{
    const auto bin = TLRegularBin::create();
    bin->setBinName(name);
    return bin;
}

std::vector<std::string> names(const TLNodeList &nodes)
{
    std::vector<std::string> result;
    for (const auto &node : nodes)
        result.push_back(node->displayName());
    return result;
}

class MyDocumentCommandsTest : public testing::Test
{
protected:
    MyDocumentCommandsTest()
    {
        TLAlert::setPresenter(alerts);
        MyDocumentServices services;
        services.view = view;
        document = std::make_unique<MyDocument>(services);
    }
    ~MyDocumentCommandsTest() override
    {
        document->waitForCommands();
        document.reset();
        TLAlert::setPresenter(nullptr);
    }

    // Opens `project` as the document's media controller.
    void load(const test::ProjectBuilder &project)
    {
        const auto controller = std::make_shared<TLFCPProjectController>();
        ASSERT_TRUE(controller->setXmlDocFromFilePath(project.writeTo(folder, "Project.xml")));
        controller->collectClipsAndMasterClipPaths();
        document->setMediaController(controller);
    }

    TLNodeList topLevel() const { return *document->dataArray(); }

    void expectOneAlert(const std::string &message, const std::string &text, void *window)
    {
        const auto shown = alerts->alerts();
        ASSERT_EQ(shown.size(), 1u);
        EXPECT_EQ(shown[0].message, message);
        EXPECT_EQ(shown[0].informativeText, text);
        EXPECT_EQ(shown[0].parentWindow, window);
        if (!window) {
            EXPECT_EQ(shown[0].description.defaultButtonTitle, "OK");
        }
    }

    test::TemporaryFolder folder;
    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::shared_ptr<test::RecordingDocumentView> view = std::make_shared<test::RecordingDocumentView>();
    std::unique_ptr<MyDocument> document;
};

// Clips whose scenes sort differently from the order they are met in.
test::ProjectBuilder sceneProject()
{
    test::ProjectBuilder project;
    const std::pair<std::string, std::string> clips[] = {{"One", "b"}, {"Two", "A"}, {"Three", "b"}};
    for (const auto &[name, scene] : clips) {
        test::FixtureClip clip;
        clip.id = name;
        clip.name = name;
        clip.uuid = "U-" + name;
        clip.scene = scene;
        project.addClip(clip);
    }
    return project;
}

TEST_F(MyDocumentCommandsTest, RangeSheetPreviewsNamesAndCountText)
{
    document->binRangeClick();
    EXPECT_EQ(document->rangePreviewNames().size(), 10u);
    EXPECT_EQ(document->rangePreviewNames().front(), "Reel 1");
    EXPECT_EQ(document->rangeCountText(), "10 items");
    EXPECT_TRUE(view->called("setRangeCountText 10 items"));
    EXPECT_TRUE(view->called("showRangeSheet"));

    document->updateRangePreview("Reel 7");
    EXPECT_EQ(document->rangePreviewNames(), std::vector<std::string>{"Reel 7"});
    EXPECT_EQ(document->rangeCountText(), "1 item");
    document->updateRangePreview("Reel ]1-3[");
    EXPECT_TRUE(document->rangePreviewNames().empty()) << "a malformed expression previews nothing";
    EXPECT_EQ(document->rangeCountText(), "0 items");
}

TEST_F(MyDocumentCommandsTest, RecreatingASeriesKeepsIdentifiersByPosition)
{
    const auto before = regularBin("Before");
    const auto after = regularBin("After");
    document->setDataArray({before});
    ASSERT_EQ(document->createRangeClick("Reel [1-3]", nullptr), EditResult::done);
    document->addItem(after, nullptr, false, false);
    const std::vector<std::string> uuids = {"ID-A", "ID-B", "ID-C"};
    for (std::size_t i = 0; i < 3; ++i)
        topLevel()[i + 1]->setUuid(uuids[i]);
    EXPECT_FALSE(document->isDocumentEdited()) << "adding range items one by one leaves the count";

    EXPECT_EQ(document->createRangeClick("Reel ]1[", topLevel()[2]), EditResult::failed);
    EXPECT_EQ(topLevel().size(), 5u) << "a malformed expression removes nothing";

    ASSERT_EQ(document->createRangeClick("Take [1-5]", topLevel()[2]), EditResult::done);
    const TLNodeList nodes = topLevel();
    ASSERT_EQ(names(nodes), (std::vector<std::string>{"Before", "After", "Take 1", "Take 2", "Take 3", "Take 4",
                                                      "Take 5"}));
    for (std::size_t i = 0; i < 5; ++i) {
        const auto item = std::static_pointer_cast<TLBinRangeItem>(nodes[i + 2]);
        EXPECT_EQ(item->uuid(), i < 3 ? std::optional(uuids[i]) : std::nullopt) << i;
        EXPECT_EQ(item->rangeCount(), 5);
        EXPECT_EQ(item->rangeCurrentIndex(), std::int64_t(i));
        EXPECT_EQ(item->rangeExpression(), "Take [1-5]");
    }
    EXPECT_TRUE(document->isDocumentEdited()) << "the removals of the old series count";
    EXPECT_TRUE(view->called("closeRangeSheet"));
}

TEST_F(MyDocumentCommandsTest, RangesGoUnderRegularBinsOnly)
{
    const auto bin = regularBin("Bin");
    const auto smartBin = TLSmartBin::create();
    document->setDataArray({bin, smartBin});
    ASSERT_EQ(document->createRangeClick("Reel [1-2]", bin), EditResult::done);
    EXPECT_EQ(names(*bin->children()), (std::vector<std::string>{"Reel 1", "Reel 2"}));
    EXPECT_EQ(bin->children()->front()->parent(), bin);

    EXPECT_EQ(document->createRangeClick("Reel [1-2]", smartBin), EditResult::refused);
    expectOneAlert("Ranges can only be added to regular bins",
                   "You cannot add a range to a range, smart bin or movie clip.", nullptr);
    EXPECT_TRUE(smartBin->children()->empty());
}

TEST_F(MyDocumentCommandsTest, EmptyBinsGoUnderRegularBinsOnly)
{
    const auto bin = regularBin("Bin");
    const auto smartBin = TLSmartBin::create();
    document->setDataArray({bin, smartBin});
    ASSERT_EQ(document->emptyBinClick(bin), EditResult::done);
    ASSERT_EQ(bin->children()->size(), 1u);
    EXPECT_EQ(bin->children()->front()->binName(), "Untitled Bin");
    EXPECT_TRUE(view->called("editItemName Untitled Bin"));
    EXPECT_TRUE(view->called("expandItem Bin"));
    EXPECT_FALSE(document->isDocumentEdited());

    EXPECT_EQ(document->emptyBinClick(smartBin), EditResult::refused);
    expectOneAlert("Bins can only be added to regular bins", "You cannot add a bin to a smart or range bin.",
                   view->mainWindow());
    EXPECT_EQ(topLevel().size(), 2u);
}

TEST_F(MyDocumentCommandsTest, SelectingOneItemSelectsTheWholeSeries)
{
    ASSERT_EQ(document->createRangeClick("A [1-3]", nullptr), EditResult::done);
    ASSERT_EQ(document->createRangeClick("B [1-2]", nullptr), EditResult::done);
    document->addItem(regularBin("Bin"), nullptr, false, false);
    const TLNodeList nodes = topLevel();

    const auto change = document->outlineViewSelectionDidChange({nodes[1]});
    EXPECT_EQ(names(change.selection), (std::vector<std::string>{"A 2", "A 1", "A 3"}));
    EXPECT_EQ(change.notificationName, "disableAddButtons");
    EXPECT_TRUE(view->called("extendSelection A 1 A 3"));
    EXPECT_TRUE(view->called("postNotification disableAddButtons"));

    const auto plain = document->outlineViewSelectionDidChange({nodes[5]});
    EXPECT_EQ(names(plain.selection), std::vector<std::string>{"Bin"});
    EXPECT_EQ(plain.notificationName, "enableAddButtons");
}

TEST_F(MyDocumentCommandsTest, DamagedSeriesIndexesNeverSweepOtherBins)
{
    // As a damaged settings file could leave them: a regular bin inside a
    // series, and an index pointing before the first row.
    const auto first = TLBinRangeItem::create("R 1", "R [1-3]", nullptr, 3, 0);
    const auto bin = regularBin("Bin");
    const auto last = TLBinRangeItem::create("R 3", "R [1-3]", nullptr, 3, 2);
    const auto stray = TLBinRangeItem::create("S", "S", nullptr, 2, 9);
    document->setDataArray({first, bin, last, stray});

    EXPECT_EQ(names(document->rangeSeriesOfItem(last)), (std::vector<std::string>{"R 1", "R 3"}));
    EXPECT_EQ(names(document->rangeSeriesOfItem(stray)), std::vector<std::string>{"S"});
    ASSERT_EQ(document->createRangeClick("T", last), EditResult::done);
    EXPECT_EQ(names(topLevel()), (std::vector<std::string>{"Bin", "S", "T"}));
}

TEST_F(MyDocumentCommandsTest, RemovingSkipsClipsAndTakesSubtrees)
{
    const auto smartBin = TLSmartBin::create();
    smartBin->setBinName("Smart");
    const auto clip = TLMediaItem::create(std::nullopt, "clip", "U1");
    smartBin->addChild(clip);
    const auto bin = regularBin("Bin");
    bin->addChild(regularBin("Inner"));
    document->setDataArray({smartBin, bin});

    document->remove({clip});
    EXPECT_EQ(smartBin->children()->size(), 1u);
    EXPECT_EQ(topLevel().size(), 2u);
    EXPECT_TRUE(view->called("reloadOutline"));
    EXPECT_FALSE(document->isDocumentEdited());

    document->remove({clip, bin});
    EXPECT_EQ(names(topLevel()), std::vector<std::string>{"Smart"});
    EXPECT_TRUE(document->isDocumentEdited());
}

TEST_F(MyDocumentCommandsTest, RenamingAndDoubleClicking)
{
    const auto bin = regularBin("Bin");
    document->setDataArray({bin});
    ASSERT_EQ(document->createRangeClick("Cam [3-4]", bin), EditResult::done);
    document->setObjectValueForItem("Renamed", bin);
    EXPECT_EQ(bin->binName(), "Renamed");
    EXPECT_FALSE(document->isDocumentEdited()) << "renaming leaves the change count";

    document->outlineViewDoubleClick(bin);
    EXPECT_TRUE(view->called("editItemName Renamed"));
    view->clear();
    document->outlineViewDoubleClick(bin->children()->back());
    EXPECT_TRUE(view->called("showRangeSheet"));
    EXPECT_EQ(view->calls().back(), "setRangeCountText 2 items");
    EXPECT_TRUE(view->called("setRangeExpressionText Cam [3-4]"));
    EXPECT_EQ(document->rangePreviewNames(), (std::vector<std::string>{"Cam 3", "Cam 4"}));
}

TEST_F(MyDocumentCommandsTest, SmartBinSheetRowsAndCells)
{
    document->smartBinClick();
    ASSERT_EQ(document->smartBinFilterArray().size(), 1u);
    EXPECT_EQ(document->smartBinObjectValue("filterType", 0), MyDocument::TableValue(std::int64_t(0)));
    EXPECT_EQ(document->smartBinObjectValue("filterMatch", 0), MyDocument::TableValue(std::int64_t(0)));
    EXPECT_EQ(document->smartBinObjectValue("filterString", 0), MyDocument::TableValue("Unknown"));
    EXPECT_TRUE(view->called("editSmartBinFilterText 0"));

    document->smartBinAddItem();
    EXPECT_TRUE(document->setSmartBinObjectValue(std::int64_t(9), "filterType", 1));
    EXPECT_TRUE(document->setSmartBinObjectValue(std::string(" 3 of them"), "filterMatch", 1));
    EXPECT_TRUE(document->setSmartBinObjectValue(std::int64_t(42), "text", 1));
    EXPECT_FALSE(document->setSmartBinObjectValue(std::int64_t(1), "filterType", 2));
    EXPECT_EQ(document->smartBinObjectValue("text", 2), std::nullopt);
    const auto row = document->smartBinFilterArray()[1];
    EXPECT_EQ(row->filterType(), 9);
    EXPECT_EQ(row->filterMatch(), 3);
    EXPECT_EQ(row->filterString(), "42");

    document->smartBinRemoveItem({0, 7});
    ASSERT_EQ(document->smartBinFilterArray().size(), 1u);
    EXPECT_EQ(document->smartBinFilterArray()[0], row);
}

TEST_F(MyDocumentCommandsTest, SmartBinIsRefusedUnderARegularBinAndLandsAtTheTopOtherwise)
{
    load(test::fixtures::sampleProject());
    const auto bin = regularBin("Bin");
    const auto rangeItem = TLBinRangeItem::create("Reel 1", "Reel 1", nullptr, 1, 0);
    document->setDataArray({bin, rangeItem});
    document->smartBinClick();
    document->setSmartBinObjectValue(std::string("Street"), "filterString", 0);

    EXPECT_EQ(document->createSmartBinClick("Streets", 0, bin).get(), EditResult::refused);
    expectOneAlert("Smart bins can only be added to regular bins",
                   "You cannot add a smart bin to a range, smart bin, smart range or movie clip.", nullptr);
    EXPECT_TRUE(view->called("stopSmartBinSpinner"));
    EXPECT_FALSE(view->called("closeSmartBinSheet")) << "the sheet stays open";

    EXPECT_EQ(document->createSmartBinClick("Streets", 0, rangeItem).get(), EditResult::failed);
    EXPECT_EQ(topLevel().size(), 2u) << "a range item has no child list";

    ASSERT_EQ(document->createSmartBinClick("Streets", 0, nullptr).get(), EditResult::done);
    ASSERT_EQ(topLevel().size(), 3u);
    const auto smartBin = std::dynamic_pointer_cast<TLSmartBin>(topLevel().back());
    ASSERT_TRUE(smartBin);
    EXPECT_EQ(smartBin->binName(), "Streets");
    EXPECT_EQ(names(*smartBin->children()), std::vector<std::string>{"Street"});
    EXPECT_EQ(smartBin->uuid(), std::nullopt);
    EXPECT_TRUE(view->called("closeSmartBinSheet"));
    EXPECT_FALSE(document->isDocumentEdited());

    document->smartBinClick();
    document->smartBinRemoveItem({0});
    EXPECT_EQ(document->createSmartBinClick("None", 0, nullptr).get(), EditResult::refused);
    EXPECT_EQ(alerts->alerts().back().message, "Unable to create smart bin");
    EXPECT_EQ(alerts->alerts().back().informativeText, "You must specify at least one option.");
    EXPECT_EQ(alerts->alerts().back().parentWindow, view->smartBinSheet());
}

TEST_F(MyDocumentCommandsTest, SmartRangePreviewIsSortedAndCreatedWhole)
{
    load(sceneProject());
    const auto bin = regularBin("Bin");
    document->setDataArray({bin});
    // Created at once: the creation must wait for the preview still running.
    document->smartRangeClick(7);
    ASSERT_EQ(document->createSmartRangeClick(bin).get(), EditResult::done);
    EXPECT_FALSE(document->isUpdatingPreview());
    ASSERT_EQ(names(*bin->children()), (std::vector<std::string>{"A", "b"}));
    EXPECT_EQ(names(*bin->children()->back()->children()), (std::vector<std::string>{"One", "Three"}));
    EXPECT_EQ(bin->children()->front()->parent(), bin);
    EXPECT_TRUE(document->isDocumentEdited()) << "adding smart ranges raises the count";
    EXPECT_TRUE(view->called("createButton off"));
    EXPECT_TRUE(view->called("closeSmartRangeSheet"));
    EXPECT_TRUE(document->smartRangePreview().empty());

    document->smartRangeClick(7);
    document->waitForCommands();
    const auto preview = document->smartRangePreview();
    ASSERT_EQ(preview.size(), 2u);
    EXPECT_EQ(document->numberOfChildrenOfItem(nullptr, MyDocument::Outline::smartRangePreview), 2u);
    EXPECT_EQ(document->childOfItem(1, nullptr, MyDocument::Outline::smartRangePreview), preview[1]);
    EXPECT_EQ(document->numberOfChildrenOfItem(preview[1], MyDocument::Outline::smartRangePreview), 2u);
    EXPECT_EQ(document->createSmartRangeClick(bin->children()->front()).get(), EditResult::refused);
    expectOneAlert("Smart ranges can only be added to regular bins",
                   "You cannot add a smart range to a range, smart bin or movie clip.", nullptr);
    EXPECT_EQ(bin->children()->size(), 2u);
}

TEST_F(MyDocumentCommandsTest, SmartRangeWithoutValuesCreatesNothingAndClosesTheSheet)
{
    load(sceneProject());
    document->smartRangeClick(1);
    ASSERT_EQ(document->createSmartRangeClick(nullptr).get(), EditResult::done);
    EXPECT_TRUE(topLevel().empty());
    EXPECT_TRUE(view->called("closeSmartRangeSheet"));
    EXPECT_FALSE(document->isDocumentEdited());
}

TEST_F(MyDocumentCommandsTest, OutlineAnswersFollowTheNodeKinds)
{
    const auto bin = regularBin("Bin");
    const auto emptyBin = regularBin("Empty");
    const auto smartBin = TLSmartBin::create();
    const auto range = TLBinRangeItem::create("Reel 1", "Reel 1", nullptr, 1, 0);
    const auto smartRange = TLSmartRangeItem::create("Day1", 2);
    const auto clip = TLMediaItem::create("/Media/a.mov", "Clip A", "U1");
    const auto bare = TLMediaItem::create(std::nullopt, "Bare", "U2");
    bin->addChildren({smartBin, range, smartRange});
    smartBin->addChildren({clip, bare});
    document->setDataArray({bin, emptyBin});

    EXPECT_EQ(document->numberOfChildrenOfItem(nullptr), 2u);
    EXPECT_EQ(document->numberOfChildrenOfItem(bin), 3u);
    EXPECT_EQ(document->numberOfChildrenOfItem(range), 0u);
    EXPECT_EQ(document->numberOfChildrenOfItem(bin, MyDocument::Outline::smartRangePreview), 0u);
    EXPECT_EQ(document->childOfItem(1, nullptr), emptyBin);
    EXPECT_EQ(document->childOfItem(1, smartBin), bare);
    EXPECT_EQ(document->childOfItem(2, smartBin), nullptr);
    EXPECT_TRUE(MyDocument::isItemExpandable(bin));
    EXPECT_FALSE(MyDocument::isItemExpandable(emptyBin));
    EXPECT_FALSE(MyDocument::isItemExpandable(smartRange));
    EXPECT_FALSE(MyDocument::isItemExpandable(range));
    EXPECT_EQ(MyDocument::objectValueForItem(clip), "Clip A");
    EXPECT_EQ(MyDocument::objectValueForItem(smartRange), "Day1");
    // Only regular bins are renamed in place.
    for (const TLBinNodePtr &node : TLNodeList{smartBin, range, smartRange, clip, nullptr})
        EXPECT_FALSE(MyDocument::isItemRenamable(node));
    EXPECT_TRUE(MyDocument::isItemRenamable(emptyBin));

    using Source = MyDocument::OutlineIcon::Source;
    const std::pair<TLBinNodePtr, std::string> named[] = {{bin, "empty-bin-small"},
                                                          {range, "bin-range-single"},
                                                          {smartRange, "smart-range-single"},
                                                          {smartBin, "smart-bin-small"}};
    for (const auto &[node, icon] : named) {
        EXPECT_EQ(MyDocument::iconForItem(node).source, Source::imageNamed);
        EXPECT_EQ(MyDocument::iconForItem(node).name, icon);
    }
    EXPECT_EQ(MyDocument::iconForItem(clip).source, Source::fileIcon);
    EXPECT_EQ(MyDocument::iconForItem(clip).name, "/Media/a.mov");
    EXPECT_EQ(MyDocument::iconForItem(bare).source, Source::fileTypeIcon);
    EXPECT_EQ(MyDocument::iconForItem(bare).name, "mov");
}

TEST_F(MyDocumentCommandsTest, CommandSSavesAnXmemlFileAndSendsAHostProject)
{
    using Action = MyDocument::MenuAction;
    EXPECT_FALSE(document->validateUserInterfaceItem(Action::openFCPProject, false).enabled);
    EXPECT_TRUE(document->validateUserInterfaceItem(Action::openFCPProject, true).enabled);

    const auto send = document->validateUserInterfaceItem(Action::sendToFCP, true);
    EXPECT_EQ(send.title, "Send to Final Cut Pro");
    EXPECT_EQ(send.keyEquivalent, "");
    EXPECT_TRUE(send.hidden);
    EXPECT_FALSE(send.enabled);
    const auto save = document->validateUserInterfaceItem(Action::save, true);
    EXPECT_EQ(save.keyEquivalent, "s");
    EXPECT_TRUE(save.enabled && !save.hidden);
    EXPECT_TRUE(document->validateUserInterfaceItem(Action::revert, true).enabled);

    document->setPremiereProject(true);
    const auto hostSend = document->validateUserInterfaceItem(Action::sendToFCP, false);
    EXPECT_EQ(hostSend.title, "Send to Premiere Pro");
    EXPECT_EQ(hostSend.keyEquivalent, "s");
    EXPECT_TRUE(hostSend.enabled && !hostSend.hidden);
    const auto hostSave = document->validateUserInterfaceItem(Action::save, false);
    EXPECT_EQ(hostSave.keyEquivalent, "");
    EXPECT_TRUE(hostSave.hidden && !hostSave.enabled);
    EXPECT_TRUE(document->validateUserInterfaceItem(Action::saveAs, false).hidden);
    EXPECT_TRUE(document->validateUserInterfaceItem(Action::other, false).enabled);
}

} // namespace
