#include <gtest/gtest.h>

#include <string>

#include "layout/VisualFormat.h"

namespace {

using namespace platform::layout;

VisualFormat Parsed(const std::string &text) {
  auto result = ParseVisualFormat(text);
  if (const auto *error = std::get_if<VisualFormatError>(&result)) {
    ADD_FAILURE() << DescribeVisualFormatError(text, *error);
    return {};
  }
  return std::get<VisualFormat>(result);
}

VisualFormatError Refused(const std::string &text) {
  auto result = ParseVisualFormat(text);
  if (const auto *error = std::get_if<VisualFormatError>(&result)) {
    EXPECT_FALSE(error->message.empty());
    EXPECT_LE(error->position, text.size());
    return *error;
  }
  ADD_FAILURE() << "taken: " << text;
  return {};
}

using Kind = VisualConnection::Kind;

TEST(VisualFormat, IsHorizontalUnlessItSaysOtherwise) {
  EXPECT_FALSE(Parsed("[a]").vertical);
  EXPECT_FALSE(Parsed("H:[a]").vertical);
  EXPECT_TRUE(Parsed("V:[a]").vertical);
}

TEST(VisualFormat, ReadsFlushNeighboursAndEdges) {
  const VisualFormat format = Parsed("|[a][b]|");
  ASSERT_EQ(format.views.size(), 2u);
  EXPECT_EQ(format.views[0].name, "a");
  EXPECT_EQ(format.views[1].name, "b");
  EXPECT_EQ(format.views[1].position, 5u);
  EXPECT_EQ(format.between.at(0).kind, Kind::kFlush);
  ASSERT_TRUE(format.leading && format.trailing);
  EXPECT_EQ(format.leading->kind, Kind::kFlush);
  EXPECT_EQ(format.trailing->kind, Kind::kFlush);
  EXPECT_EQ(format.leadingPosition, 0u);
  EXPECT_EQ(format.trailingPosition, 7u);
}

TEST(VisualFormat, ReadsTheStandardGap) {
  const VisualFormat format = Parsed("H:|-[a]-[b]-|");
  EXPECT_EQ(format.leading->kind, Kind::kStandard);
  EXPECT_EQ(format.between.at(0).kind, Kind::kStandard);
  EXPECT_EQ(format.trailing->kind, Kind::kStandard);
}

TEST(VisualFormat, ReadsGapsWithAndWithoutBrackets) {
  const VisualFormat format = Parsed("|-8-[a]-(8.5)-[b]-(d)-[c]-d-|");
  EXPECT_EQ(format.leading->predicates.at(0).object.number, 8.0);
  EXPECT_EQ(format.between.at(0).predicates.at(0).object.number, 8.5);
  EXPECT_EQ(format.between.at(1).predicates.at(0).object.name, "d");
  EXPECT_FALSE(format.between.at(1).predicates.at(0).object.number);
  EXPECT_EQ(format.trailing->predicates.at(0).object.name, "d");
}

TEST(VisualFormat, ReadsRelationsListsAndPriorities) {
  const VisualFormat format = Parsed("V:[a(>=50,<=100@20.5,==width@low)]-(>=8.0)-[b(a)]");
  const auto &sizes = format.views.at(0).predicates;
  ASSERT_EQ(sizes.size(), 3u);
  EXPECT_EQ(sizes[0].relation, Relation::kGreaterOrEqual);
  EXPECT_EQ(sizes[0].object.number, 50.0);
  EXPECT_FALSE(sizes[0].priority);
  EXPECT_EQ(sizes[1].relation, Relation::kLessOrEqual);
  EXPECT_EQ(sizes[1].priority->number, 20.5);
  EXPECT_EQ(sizes[2].relation, Relation::kEqual);
  EXPECT_EQ(sizes[2].object.name, "width");
  EXPECT_EQ(sizes[2].priority->name, "low");
  EXPECT_EQ(format.between.at(0).predicates.at(0).relation, Relation::kGreaterOrEqual);
  EXPECT_EQ(format.views.at(1).predicates.at(0).object.name, "a");
}

TEST(VisualFormat, TakesNegativeNumbersInsideBracketsOnly) {
  EXPECT_EQ(Parsed("[a]-(-8.0)-[b]").between.at(0).predicates.at(0).object.number, -8.0);
  EXPECT_EQ(Parsed("[a]-(>=-1e1)-[b]").between.at(0).predicates.at(0).object.number, -10.0);
  EXPECT_EQ(Parsed("[a(+4)]").views.at(0).predicates.at(0).object.number, 4.0);
  EXPECT_EQ(Refused("[a]--8-[b]").position, 4u);
}

TEST(VisualFormat, TakesFormsOfNumbers) {
  EXPECT_EQ(Parsed("[a(.5)]").views.at(0).predicates.at(0).object.number, 0.5);
  EXPECT_EQ(Parsed("[a(5.)]").views.at(0).predicates.at(0).object.number, 5.0);
  EXPECT_EQ(Parsed("[a(0.0)]").views.at(0).predicates.at(0).object.number, 0.0);
  Refused("[a(.)]");
  Refused("[a(1e999)]");
  Refused("[a(+-4)]");
  Refused("[a(-)]");
}

TEST(VisualFormat, ACommaSeparatesPredicatesAndIsNoDecimalMark) {
  const auto sizes = Parsed("[a(8,5)]").views.at(0).predicates;
  ASSERT_EQ(sizes.size(), 2u);
  EXPECT_EQ(sizes[0].object.number, 8.0);
  EXPECT_EQ(sizes[1].object.number, 5.0);
}

TEST(VisualFormat, AllowsBlanksBetweenItsParts) {
  const VisualFormat format = Parsed(" H:| - (8.0) - [a ( >= 4 @ 20 , <= d )] - | ");
  EXPECT_EQ(format.leading->predicates.at(0).object.number, 8.0);
  EXPECT_EQ(format.views.at(0).predicates.size(), 2u);
  EXPECT_EQ(format.trailing->kind, Kind::kStandard);
}

TEST(VisualFormat, NamesAreIdentifiers) {
  EXPECT_EQ(Parsed("[_a1(i_height)]").views.at(0).name, "_a1");
  EXPECT_EQ(Refused("[1a]").position, 1u);
  EXPECT_EQ(Refused("[]").position, 1u);
}

TEST(VisualFormat, PointsAtTheFirstMistake) {
  struct {
    const char *text;
    size_t position;
  } cases[] = {{"", 0},           {"H:", 2},          {"H[a]", 1},     {"|", 1},
               {"||", 1},         {"|-8-|", 4},       {"H:|-[a", 6},   {"[a(", 3},
               {"[a()]", 3},      {"[a(4]", 4},       {"[a(=4)]", 3},  {"[a(4@)]", 5},
               {"[a(4,)]", 5},    {"[a]-", 4},        {"[a]-8[b]", 5}, {"[a]-(8-[b]", 6},
               {"[a]|x", 4},      {"[a]|[b]", 4},     {"[a]x[b]", 3},  {"Z:[a]", 0},
               {"[a]-(>8)-|", 5}, {"[a]-8-8-[b]", 6}, {"[a(4)(5)]", 5}};
  for (const auto &one : cases) {
    EXPECT_EQ(Refused(one.text).position, one.position) << one.text;
  }
}

TEST(VisualFormat, TellsAnErrorInThreeLinesWithACaret) {
  const std::string text = "H:|-[ä]";
  EXPECT_EQ(DescribeVisualFormatError(text, Refused(text)),
            "Unable to parse constraint format: \n"
            "Expected the name of a view \n"
            "H:|-[ä] \n"
            "     ^");
  EXPECT_EQ(DescribeVisualFormatError("[ä]x", {"Here", 4}),
            "Unable to parse constraint format: \nHere \n[ä]x \n   ^");
}

}  // namespace
