// The words and numbers of fields, operators, match types and criteria.
#include "CliNames.h"

#include <gtest/gtest.h>

TEST(CliNamesTest, WordsAndNumbersMapToTheEngineNumbers)
{
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "scene"), 9);
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "File-Type"), 2);
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "extension"), 2);
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "20"), 20);
    EXPECT_EQ(CliNames::numberForText(CliNames::operators(), "contains"), 0);
    EXPECT_EQ(CliNames::numberForText(CliNames::operators(), "before"), 5);
    EXPECT_EQ(CliNames::numberForText(CliNames::matchTypes(), "first"), 0);
    EXPECT_EQ(CliNames::numberForText(CliNames::matchTypes(), "any"), 1);
    EXPECT_EQ(CliNames::numberForText(CliNames::matchTypes(), "all"), 2);
    // The two tables number the same words differently.
    EXPECT_EQ(CliNames::numberForText(CliNames::criteria(), "scene"), 7);
    EXPECT_EQ(CliNames::numberForText(CliNames::criteria(), "file-type"), 0);
    EXPECT_EQ(CliNames::numberForText(CliNames::criteria(), "1"), 1);
}

TEST(CliNamesTest, AnythingOutsideATableIsRejected)
{
    for (const char *text : {"", "21", "-1", "+3", " 9", "9 ", "scen", "1e1", "99999999999999999999"})
        EXPECT_FALSE(CliNames::numberForText(CliNames::fields(), text)) << text;
    EXPECT_FALSE(CliNames::numberForText(CliNames::operators(), "6"));
    EXPECT_FALSE(CliNames::numberForText(CliNames::matchTypes(), "3"));
    EXPECT_FALSE(CliNames::numberForText(CliNames::criteria(), "19"));
    // Criterion 1 has a number but no word: an empty word must not match "".
    EXPECT_FALSE(CliNames::numberForText(CliNames::criteria(), ""));
}

TEST(CliNamesTest, NumbersPrintAsTheirMainWord)
{
    EXPECT_EQ(CliNames::wordForNumber(CliNames::fields(), 2), "file-type");
    EXPECT_EQ(CliNames::wordForNumber(CliNames::operators(), 1), "does-not-contain");
    EXPECT_EQ(CliNames::wordForNumber(CliNames::criteria(), 1), "1");
    EXPECT_EQ(CliNames::wordForNumber(CliNames::fields(), 42), "42");
    const std::string listing = CliNames::listing();
    EXPECT_NE(listing.find("   9  scene"), std::string::npos) << listing;
    EXPECT_NE(listing.find("also extension"), std::string::npos);
}

// `corvale fields` prints this listing; scripts and people read it, so the
// table behind it must keep every word, alias and description.
TEST(CliNamesTest, ListingIsTheOneUsersKnow)
{
    const char *const expected = R"(Smart bin fields (--filter "FIELD OPERATOR VALUE"):
   0  name              the clip's name
   1  file-name         the name of the clip's media file
   2  file-type         the extension of the media file, as written
        also extension
   3  url               the URL of the file held directly by the clip
   4  duration          the duration, in frames
   5  timebase          the frame rate's timebase
   6  width             the frame width
   7  height            the frame height
   8  field-dominance   the field dominance
   9  scene             the logged scene
  10  shot-take         the logged shot or take
  11  log-note          the log note
  12  good              the good mark, as stored
  13  label             the colour label
  14  comment-1         master comment 1
  15  comment-2         master comment 2
  16  comment-3         master comment 3
  17  comment-4         master comment 4
  18  audio             the text directly inside the clip's audio
  19  has-audio         "true" or "false": whether the clip has sound
  20  audio-depth       the audio bit depth

Operators (compare the field's text with VALUE):
   0  contains          the field contains the value, ignoring case
   1  does-not-contain  the field does not contain the value, ignoring case
        also not-contains
   2  is                the field equals the value exactly
        also equals
   3  is-not            the field differs from the value
   4  after             the field sorts after the value, as text ("9" after "100")
   5  before            the field sorts before the value, as text

Match types (--match):
   0  first             only the first filter counts, and only in a bin of one filter
   1  any               a clip is listed once for every filter it passes
   2  all               a clip is listed when it passes every filter

Smart range criteria (--smart-range):
   0  file-type         the media file's extension, lower-cased
   1                    (no criterion: makes no bins)
   2  folder            the folder that holds the media file
   3  timebase          the frame rate's timebase
   4  width             the frame width
   5  height            the frame height
   6  field-dominance   the field dominance
   7  scene             the logged scene
   8  shot-take         the logged shot or take
   9  log-note          the log note
  10  good              the good mark, as stored
  11  label             the colour label
  12  comment-1         master comment 1
  13  comment-2         master comment 2
  14  comment-3         master comment 3
  15  comment-4         master comment 4
  16  has-audio         "true" or "false": whether the clip has sound
  17  sample-rate       the audio sample rate
  18  audio-depth       the audio bit depth

Words and numbers are interchangeable; a clip without the field passes every filter on it.
)";
    EXPECT_EQ(CliNames::listing(), expected);
}
