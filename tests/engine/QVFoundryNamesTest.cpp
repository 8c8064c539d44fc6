// The foundry list shipped in the resources and the matching of notices.
#include "engine/QVFontDiagnose.h"

#include <gtest/gtest.h>

TEST(QVFoundryNames, ShippedListIsLongAndOrdered)
{
    QVFontDiagnose examiner;
    const QStringList &list = examiner.foundryArray;
    ASSERT_GT(list.size(), 100);
    // The first match wins: a name that contains an earlier one would never
    // be found, so longer names come before the names they contain.
    for (qsizetype i = 0; i < list.size(); ++i) {
        for (qsizetype j = i + 1; j < list.size(); ++j)
            EXPECT_FALSE(list.at(j).toLower().contains(list.at(i).toLower()))
                << qPrintable(list.at(j)) << " is shadowed by " << qPrintable(list.at(i));
    }
    EXPECT_EQ(examiner.matchFoundryName("Copyright 1990 Linotype-Hell AG and/or its subsidiaries."),
        "Linotype-Hell");
    EXPECT_EQ(
        examiner.matchFoundryName("Digitized data copyright Monotype Corporation"), "Monotype Corporation");
    EXPECT_EQ(examiner.matchFoundryName("Copyright (c) 1989 Adobe Systems Incorporated."), "Adobe Systems");
    EXPECT_EQ(examiner.matchFoundryName("(URW)++,Copyright 2014 by (URW)++ Design & Development"), "URW");
    EXPECT_EQ(examiner.matchFoundryName("Made by hand in a shed"), "Generic");
}

TEST(QVFoundryNames, FirstMatchInListOrder)
{
    QVFontDiagnose examiner;
    examiner.foundryArray = QStringList { "Alpha Type", "Beta Foundry", "Gamma" };
    EXPECT_EQ(examiner.matchFoundryName("copyright GAMMA and beta foundry"), "Beta Foundry");
    EXPECT_EQ(examiner.matchFoundryName("(c) gamma inc."), "Gamma");
    examiner.foundryArray.clear();
    EXPECT_EQ(examiner.matchFoundryName("(c) gamma inc."), "Generic");
    EXPECT_EQ(examiner.matchFoundryName(""), "Generic");
}
