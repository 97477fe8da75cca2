// The table that completes a system's lower-casing to full case folding (Windows, the page, GNUstep),
// against ICU's full case folding for every code point, on Linux where ICU is at hand.
#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include "bridge/FullCaseFolding.h"

using namespace brivane::bridge;

TEST(folding_table_test, table_and_simple_lower_casing_fold_every_code_point_as_icu_does) {
    // ICU's simple lower case of each character stands for the system's.
    const auto lower = [](const std::u16string& run, std::u16string& out) {
        ForEachCodePoint(run,
                         [&out](char32_t c) { AppendCodePoint(out, static_cast<char32_t>(u_tolower(c))); });
        return true;
    };
    int differences = 0;
    for (char32_t c = 0; c <= 0x10FFFF && differences < 10; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        // Between two letters, so that the runs around a character from the table are folded too.
        std::u16string text = u"K";
        AppendCodePoint(text, c);
        text += u"Q";
        std::u16string table, icu(3 * text.size(), u'\0');
        UErrorCode status = U_ZERO_ERROR;
        icu.resize(static_cast<std::size_t>(u_strFoldCase(icu.data(), static_cast<int32_t>(icu.size()),
                                                          text.data(), static_cast<int32_t>(text.size()),
                                                          U_FOLD_CASE_DEFAULT, &status)));
        ASSERT_TRUE(U_SUCCESS(status));
        ASSERT_TRUE(FoldWithTable(text, table, lower));
        if (table != icu) ++differences;
        EXPECT_EQ(table, icu) << std::hex << "U+" << static_cast<uint32_t>(c);
    }
}
