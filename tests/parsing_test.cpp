#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "resources/calibration.h"
#include "resources/class_table.h"
#include "resources/decipher.h"
#include "resources/details_line.h"
#include "base/text_fields.h"

using namespace Base;
using namespace Resources;

TEST(TextFields, LeadingNumbersReadLikeAtoiAndStrtod) {
    EXPECT_EQ(leadingInteger("8337"), 8337u);
    EXPECT_EQ(static_cast<int32_t>(leadingInteger("-3")), -3);
    EXPECT_EQ(leadingInteger("12x"), 12u);
    EXPECT_EQ(leadingInteger("x12"), 0u);
    EXPECT_EQ(leadingInteger("+7"), 7u);
    EXPECT_EQ(leadingInteger(""), 0u);
    EXPECT_EQ(leadingInteger("4294967297"), 1u);  // wraps, never undefined
    EXPECT_FLOAT_EQ(leadingFloat(" 50.5abc"), 50.5f);
    EXPECT_FLOAT_EQ(leadingFloat("-2"), -2.0f);
    EXPECT_FLOAT_EQ(leadingFloat("abc"), 0.0f);
    EXPECT_TRUE(std::isinf(leadingFloat("1e999")));
    EXPECT_FLOAT_EQ(leadingFloat("1e-999"), 0.0f);
    EXPECT_TRUE(std::isinf(leadingFloat("1e300")));  // beyond float, not undefined
    EXPECT_EQ(trim(" \t\v\f\r\nx y \r"), "x y");
    EXPECT_EQ(trim(" \t "), "");
}

TEST(DetailsLine, FieldsAreTrimmedAndTheFlagIsInverted) {
    auto details = parseDetailsLine("  8337 , Face detector ,\t2.1 \r\nsecond line");
    ASSERT_TRUE(details);
    EXPECT_EQ(details->identifier, 8337u);
    EXPECT_EQ(details->name, "Face detector");
    EXPECT_EQ(details->version, "2.1");
    EXPECT_EQ(details->enabled, 1);
    EXPECT_EQ(parseDetailsLine("8337,Face detector,2.1,1")->enabled, 0);
    EXPECT_EQ(parseDetailsLine("8337,Face detector,2.1, 0")->enabled, 1);
    EXPECT_EQ(parseDetailsLine("8337,Face detector,2.1,yes,more")->enabled, 1);

    EXPECT_FALSE(parseDetailsLine(""));
    EXPECT_FALSE(parseDetailsLine("\n8337,a,b"));
    EXPECT_FALSE(parseDetailsLine("8337,Face"));
    EXPECT_FALSE(parseDetailsLine(" ,Face,1"));
    EXPECT_FALSE(parseDetailsLine("8337, ,1"));
    EXPECT_FALSE(parseDetailsLine("8337,Face, \t"));
    // An identifier field without digits is not empty: it reads as 0.
    EXPECT_EQ(parseDetailsLine("abc,Face,1")->identifier, 0u);
    EXPECT_EQ(firstWord("Vision Pro"), "Vision");
    EXPECT_EQ(firstWord("Vision"), "Vision");
}

TEST(ClassTable, BackgroundCategoriesAndCalibration) {
    const ClassTable table = parseClassTable("0, Neutral\r\n14, Drinks, 50=30, 80=60\n\n-3,Minus\n0\n21,,");
    EXPECT_EQ(table.backgroundIndex, 4u);  // the last background line wins
    ASSERT_EQ(table.categories.size(), 3u);

    const auto& drinks = table.categories[0];
    EXPECT_EQ(drinks.line, 1);
    EXPECT_EQ(drinks.details.identifier, 14);
    EXPECT_EQ(drinks.details.name, "Drinks");
    EXPECT_EQ(drinks.details.x, (std::vector<float>{0, 50, 80}));
    EXPECT_EQ(drinks.details.y, (std::vector<float>{0, 30, 60}));
    ASSERT_EQ(drinks.details.s.size(), 3u);
    EXPECT_FLOAT_EQ(drinks.details.s[0], (50.0f + 1e-6f) / (30.0f + 1e-6f));
    EXPECT_FLOAT_EQ(drinks.details.s[1], 1.0f);
    EXPECT_FLOAT_EQ(drinks.details.s[2], 0.5f);

    EXPECT_EQ(table.categories[1].line, 3);  // blank lines count
    EXPECT_EQ(table.categories[1].details.identifier, -3);
    EXPECT_TRUE(table.categories[1].details.x.empty());
    EXPECT_EQ(table.categories[2].line, 5);
    EXPECT_EQ(table.categories[2].details.name, "");

    // A leading background field, then a category on the same line.
    const ClassTable mixed = parseClassTable("7,First\n0, 0, 9, Nine, 10=20");
    EXPECT_EQ(mixed.backgroundIndex, 1u);
    ASSERT_EQ(mixed.categories.size(), 2u);
    EXPECT_EQ(mixed.categories[1].details.name, "Nine");
    EXPECT_EQ(mixed.categories[1].details.x, (std::vector<float>{0, 10}));
    EXPECT_TRUE(parseClassTable("").categories.empty());
}

TEST(Calibration, PointsAndSlopes) {
    EXPECT_FLOAT_EQ(parseCalibrationPoint("50=30").raw, 50.0f);
    EXPECT_FLOAT_EQ(parseCalibrationPoint("50=30").published, 30.0f);
    EXPECT_FLOAT_EQ(parseCalibrationPoint("=50==30=").published, 30.0f);  // empty tokens skipped
    EXPECT_FLOAT_EQ(parseCalibrationPoint("50=1=2").published, 2.0f);     // the last one wins
    EXPECT_FLOAT_EQ(parseCalibrationPoint("50").published, 0.0f);

    CategoryDetails repeated;
    buildCalibration({{40, 40}, {40, 40}}, repeated);
    ASSERT_EQ(repeated.s.size(), 3u);  // 0/0 is not a number, not zero: kept
    EXPECT_TRUE(std::isnan(repeated.s[1]));

    CategoryDetails flat;
    buildCalibration({{50, 30}, {50, 40}}, flat);  // slope 0 / 10 = 0 is left out
    EXPECT_EQ(flat.x.size(), 3u);
    EXPECT_EQ(flat.s.size(), 2u);
}

TEST(Calibration, PiecewiseLinearMapping) {
    CategoryDetails drinks;
    buildCalibration({{50, 30}, {80, 60}}, drinks);
    EXPECT_FLOAT_EQ(calibrate(drinks, 90.0f), 80.0f);   // at or above the last point: closing slope
    EXPECT_FLOAT_EQ(calibrate(drinks, 60.0f), 40.0f);   // segment 1
    EXPECT_FLOAT_EQ(calibrate(drinks, 80.0f), 60.0f);
    EXPECT_FLOAT_EQ(calibrate(drinks, 100.0f), 100.0f);
    EXPECT_NEAR(calibrate(drinks, 25.0f), 15.0f, 1e-4f);

    CategoryDetails none;
    EXPECT_FLOAT_EQ(calibrate(none, 42.5f), 42.5f);

    // S shorter than X: the missing slope divides by 1 instead of reading past the end.
    CategoryDetails shortSlopes;
    shortSlopes.x = {0, 50, 80};
    shortSlopes.y = {0, 30, 60};
    shortSlopes.s = {2.0f};
    EXPECT_FLOAT_EQ(calibrate(shortSlopes, 90.0f), 70.0f);
    EXPECT_FLOAT_EQ(calibrate(shortSlopes, 10.0f), 5.0f);
}

TEST(Decipher, RoundTripAndKeyPosition) {
    std::vector<uint8_t> plain(100);
    for (size_t i = 0; i < plain.size(); ++i) plain[i] = static_cast<uint8_t>(i * 7);
    std::vector<uint8_t> once = plain;
    decipherInPlace(once.data(), once.size());
    EXPECT_EQ(once[0], plain[0] ^ '5');
    EXPECT_EQ(once[32], plain[32] ^ '5');  // the key starts over every 32 bytes
    EXPECT_EQ(once[31], plain[31] ^ '3');
    EXPECT_EQ(once[99], plain[99] ^ 'c');  // the tail after the whole blocks: key byte 99 mod 32
    std::vector<uint8_t> twice = once;
    decipherInPlace(twice.data(), twice.size());
    EXPECT_EQ(twice, plain);
}

TEST(TextFields, CodePointsOfWellFormedUtf8Only) {
    const auto pieces = Base::splitCodePoints("a\xc3\xa9 \xe2\x82\xac\xf0\x9f\x98\x80");
    ASSERT_TRUE(pieces.has_value());
    EXPECT_EQ(*pieces, (std::vector<std::string>{"a", "\xc3\xa9", " ", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}));
    // Cut short, a stray continuation, overlong, a surrogate, past U+10FFFF.
    for (const char* bad : {"\xc3", "\x80", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
        EXPECT_FALSE(Base::splitCodePoints(bad).has_value()) << bad;
    }
}
