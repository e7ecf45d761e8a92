#include <gtest/gtest.h>

#include "codepage/CodePageHelper.h"

namespace {

// A table for `cp` whose first entry holds the euro sign.
TCodePageVarda euro_table(int cp) {
  TCodePageVarda t;
  t.codepage = cp;
  t.num_paginas = 1;
  t.tabla[0] = 0x20AC;
  t.tabla[0x69] = 0x20AC;  // a later match for the same code wins
  t.tabla[1] = 0x05D0;
  return t;
}

TEST(CodePageRegistry, NamesAndNumbers) {
  TCodePageHelper h;
  EXPECT_STREQ(h.CodepageNumToName(65001).c_str(), "UTF-8");
  EXPECT_STREQ(h.CodepageNumToName(28591).c_str(), "");
  EXPECT_EQ(h.CodepageNameToNum(DString("UTF-8")), 65001);
  EXPECT_EQ(h.CodepageNameToNum(DString("ISO-8859-1")), 28591);
  EXPECT_EQ(h.CodepageNameToNum(DString("utf-8")), -1);
  EXPECT_EQ(h.CodepageNameToNum(DString()), -1);
  EXPECT_FALSE(h.IsCodePage_RigtToLeft(1254));
  EXPECT_TRUE(h.IsCodePage_RigtToLeft(1255));
  EXPECT_TRUE(h.IsCodePage_RigtToLeft(1256));
  EXPECT_FALSE(h.IsCodePage_RigtToLeft(1257));
}

TEST(CodePageRegistry, LookupThroughATable) {
  TCodePageHelper h;
  h.Anyade(euro_table(1255));
  h.Anyade(euro_table(1252));
  EXPECT_EQ(h.CodepagePropio(0), 1);  // 0 stands for 1252
  EXPECT_EQ(h.CodepagePropio(1255), 0);
  EXPECT_EQ(h.KeyFromUTFToCodepage(0x20AC, 0), 128 + 0x69);
  EXPECT_EQ(h.KeyFromUTFToCodepage(0x05D0, 1252), 129);
  EXPECT_EQ(h.KeyFromUTFToCodepage(0x0416, 1252), 63);
  EXPECT_EQ(h.KeyFromUTFToCodepage(0x41, 1252), 0x41);
  EXPECT_EQ(h.KeyFromUTFToCodepage(0x20AC, 1256), 0x20AC);  // no table: passed through
}

TEST(CodePageRegistry, CacheIsNotClearedWhenTablesAreAdded) {
  TCodePageHelper h;
  EXPECT_EQ(h.CodepagePropio(1254), -1);
  h.Anyade(euro_table(1254));
  EXPECT_EQ(h.CodepagePropio(1254), -1);  // still the remembered answer
  EXPECT_EQ(h.CodepagePropio(1253), -1);
  EXPECT_EQ(h.CodepagePropio(1254), 0);
}

TEST(CodePageRegistry, DeleteGlobalsFreesTheRegistry) {
  TCodePageHelper* saved = CodePageHelper;
  CodePageHelper = new TCodePageHelper;
  CodePageHelper->Anyade(euro_table(1250));
  TCodePageHelper::DeleteGlobals();  // a leak or double free shows under ASan
  CodePageHelper = saved;
}

}  // namespace
