#include "ui/AFXPlaceholders.h"

#include <gtest/gtest.h>

TEST(Placeholders, FitWhenTheyTakeNoMoreObjectsThanThereAre) {
  EXPECT_TRUE(__AFXPlaceholdersFit("", 0));
  EXPECT_TRUE(__AFXPlaceholdersFit("no placeholder", 0));
  EXPECT_TRUE(__AFXPlaceholdersFit("no placeholder", 2));
  EXPECT_TRUE(__AFXPlaceholdersFit("%@", 1));
  EXPECT_FALSE(__AFXPlaceholdersFit("%@", 0));
  EXPECT_TRUE(__AFXPlaceholdersFit("%@ and %@", 2));
  EXPECT_FALSE(__AFXPlaceholdersFit("%@ and %@", 1));
  EXPECT_FALSE(__AFXPlaceholdersFit("%@%@%@", 2));
}

TEST(Placeholders, FitInAnyOrderAndNumberByPosition) {
  EXPECT_TRUE(__AFXPlaceholdersFit("%1$@", 1));
  EXPECT_TRUE(__AFXPlaceholdersFit("%2$@ %1$@", 2));
  EXPECT_TRUE(__AFXPlaceholdersFit("%1$@%1$@%1$@%1$@", 1));
  EXPECT_TRUE(__AFXPlaceholdersFit("%2$@", 2));
  EXPECT_FALSE(__AFXPlaceholdersFit("%2$@", 1));
  EXPECT_FALSE(__AFXPlaceholdersFit("%0$@", 2));
  EXPECT_FALSE(__AFXPlaceholdersFit("%3$@", 2));
  EXPECT_TRUE(__AFXPlaceholdersFit("%9$@", 9));
  EXPECT_FALSE(__AFXPlaceholdersFit("%10$@", 9));
  EXPECT_FALSE(__AFXPlaceholdersFit("%99$@", 2));
  EXPECT_FALSE(__AFXPlaceholdersFit("%18446744073709551617$@", 1));
  EXPECT_FALSE(__AFXPlaceholdersFit("%$@", 1));
  EXPECT_FALSE(__AFXPlaceholdersFit("%-1$@", 1));
}

TEST(Placeholders, AreOfOneKindInAText) {
  EXPECT_FALSE(__AFXPlaceholdersFit("%1$@ %@", 2));
  EXPECT_FALSE(__AFXPlaceholdersFit("%@ %2$@", 2));
}

TEST(Placeholders, TakeObjectsOnly) {
  for (const char *format : {"%d", "%n", "%s", "%p", "%c", "%C", "%S", "%f", "%ld", "%*@", "%5@",
                             "%-5@", "%.3@", "% @", "%1$d", "%1$s", "%1$n", "%1$*2$@", "%a"}) {
    EXPECT_FALSE(__AFXPlaceholdersFit(format, 2)) << format;
  }
}

TEST(Placeholders, IgnoreEscapedPercentSigns) {
  EXPECT_TRUE(__AFXPlaceholdersFit("100 %%", 0));
  EXPECT_TRUE(__AFXPlaceholdersFit("%%@", 0));
  EXPECT_TRUE(__AFXPlaceholdersFit("%%%@", 1));
  EXPECT_TRUE(__AFXPlaceholdersFit("%%%%%@%%", 1));
}

TEST(Placeholders, MustBeComplete) {
  for (const char *format : {"%", "100 %", "%@ %", "%1", "%1$", "%1$%", "%%%"}) {
    EXPECT_FALSE(__AFXPlaceholdersFit(format, 2)) << format;
  }
}
