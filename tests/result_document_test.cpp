#include <gtest/gtest.h>

#include "scan/category_list.h"
#include "scan/result_document.h"

using namespace Scan;

TEST(ResultDocument, SectionsScoresAndEscaping) {
    ResultDocument document;
    std::vector<CategoryScore> scores{{"Weapons", 0.9f},    {"Quote\"Back\\slash", 97.31234f},
                                      {"", 0.00004f},        {"Tab\tNew\nBell\x07", 1.0f},
                                      {"caf\xc3\xa9/x", -87.5f}, {std::string("cut\0here", 8), 0.0f}};
    document.writeScanResults(scores);
    EXPECT_TRUE(scores.empty());  // consumed
    std::vector<CategoryScore> again{{"ignored", 1.0f}};
    document.writeScanResults(again);  // each section once
    std::vector<TextFinding> texts{
        {{cv::Point(10, 5), cv::Point(40, 5), cv::Point(40, 20), cv::Point(10, 21)}, "ab12"}};
    document.writeTextDetails(texts);
    std::vector<FaceFinding> faces{{1, 87.5f, -3, 98, 117, 122}};
    document.writeFaceDetails(faces);
    document.writeImageSize(640, 480);
    document.writeErrorText("Invalid image data...\tInvalid image dimension/s...");
    document.writeVerdict(false);
    EXPECT_EQ(document.finish(),
              "{\"scan_result\":[{\"Weapons\":0.8999},{\"Quote\\\"Back\\\\slash\":97.3123},{\"\":0.0},"
              "{\"Tab\\tNew\\nBell\\u0007\":1.0},{\"caf\xc3\xa9/x\":-87.5},{\"cut\":0.0}],"
              "\"text_details\":[\"10,5,40,5,40,20,10,21,ab12\"],"
              "\"face_details\":[{\"score\":87.5,\"location\":{\"vertices\":[{\"y\":98,\"x\":-3},{\"y\":98,\"x\":117},"
              "{\"y\":122,\"x\":-3},{\"y\":122,\"x\":117}]}}],"
              "\"img_width\":640,\"img_height\":480,"
              "\"error_code\":\"Invalid image data...\\tInvalid image dimension/s...\",\"result\":\"False\"}");
}

TEST(CategoryList, TokensDuplicatesAndMissingResources) {
    const std::vector<Resources::CategoryIndexEntry> index{
        {12, 100, 1}, {13, 100, 2}, {5, 8337, 1}, {7, 555, 1}, {8, 555, 2}, {0, 100, 3}};
    const std::vector<Resources::ResourceSet> sets{{"Vision Pro", {100, 101, 0}}, {"Faces", {8337, 0, 0}}};
    std::string errors;
    const CategoryRequest request =
        parseCategoryList(" 12 ,5, 12x,x,,13,7,8, 99 ,-1", index, sets, errors);
    // "x" converts to 0, which the index happens to hold: a category like any other.
    EXPECT_EQ(request.accepted, (std::vector<int32_t>{12, 5, 0, 13, 7, 8}));
    EXPECT_EQ(request.groups, (std::vector<uint32_t>{100, 8337, 555}));
    EXPECT_EQ(request.resourcesToLoad, (std::vector<uint32_t>{100, 101, 8337}));
    ASSERT_EQ(request.jobs.size(), 2u);
    EXPECT_EQ(request.jobs[0].group, 100u);
    EXPECT_EQ(request.jobs[0].slots, (std::vector<int32_t>{1, 3, 2}));
    EXPECT_EQ(request.jobs[0].categories, (std::vector<int32_t>{12, 0, 13}));
    EXPECT_EQ(request.jobs[1].categories, (std::vector<int32_t>{5}));
    // A group without a resource set is named once, by its first category.
    EXPECT_EQ(errors,
              "\tDuplicate Category: 12x\tResource not found for category: 7\tInvalid Category: 99"
              "\tInvalid Category: -1");

    std::string none;
    EXPECT_TRUE(parseCategoryList(nullptr, index, sets, none).accepted.empty());
    EXPECT_TRUE(parseCategoryList(" , ,", index, sets, none).accepted.empty());
    EXPECT_EQ(none, "");
}
