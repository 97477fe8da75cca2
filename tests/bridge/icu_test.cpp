// The bridges' own text code against ICU, on Linux where ICU is at hand: the table that completes a
// system's lower-casing to full case folding (Windows, the page, GNUstep) for every code point, and the
// UTF-8 repair every system shares for every code point and every short byte sequence.
#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include "bridge/BridgeText.h"
#include "bridge/FullCaseFolding.h"

using namespace brivane::bridge;

TEST(icu_test, table_and_simple_lower_casing_fold_every_code_point_as_icu_does) {
    // ICU's simple lower case of each character stands for the system's.
    const auto lower = [](const std::u16string& run, std::u16string& out) {
        ForEachCodePoint(run,
                         [&out](char32_t c) { AppendCodePoint(out, static_cast<char32_t>(u_tolower(c))); });
        return true;
    };
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        // Between two letters, so that the runs around a character from the table are folded too.
        std::u16string text = u"K", table, icu(12, u'\0');
        AppendCodePoint(text, c);
        text += u"Q";
        UErrorCode status = U_ZERO_ERROR;
        icu.resize(static_cast<std::size_t>(u_strFoldCase(
            icu.data(), 12, text.data(), static_cast<int32_t>(text.size()), U_FOLD_CASE_DEFAULT, &status)));
        ASSERT_TRUE(U_SUCCESS(status) && FoldWithTable(text, table, lower));
        ASSERT_EQ(table, icu) << std::hex << "U+" << static_cast<uint32_t>(c);
    }
}

TEST(icu_test, utf8_is_decoded_and_repaired_as_icu_does) {
    const auto icu = [](const std::string& bytes) {
        std::u16string out(bytes.size() + 1, u'\0');
        int32_t length = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length, bytes.data(),
                             static_cast<int32_t>(bytes.size()), 0xFFFD, nullptr, &status);
        out.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
        return out;
    };
    int differences = 0;
    auto check = [&](const std::string& bytes) {
        differences += DecodeUtf8(bytes.data(), bytes.size()) != icu(bytes);
    };
    // Every code point there and back; every pair of bytes, and every lead and second byte before a
    // continuation, between letters, cover the leads' and the second bytes' bounds.
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        std::u16string text;
        AppendCodePoint(text, c);
        const std::string bytes = EncodeUtf8(text);
        check(bytes);
        if (DecodeUtf8(bytes.data(), bytes.size()) != text) ++differences;
    }
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const char a = static_cast<char>(first), b = static_cast<char>(second);
            check(std::string{'x', a, b, 'y'});
            check(std::string{'x', a, b, '\x80', 'y'});
            check(std::string{'x', a, b, '\x80', '\x80', 'y'});
        }
    }
    EXPECT_EQ(differences, 0);
    const uint16_t units[] = {0xDBFF, 0xDFFF, 0xDC00, 0xD7FF};  // a pair, a lone low surrogate
    EXPECT_EQ(RepairUtf16(units, 4),
              (std::u16string{char16_t(0xDBFF), char16_t(0xDFFF), u'\uFFFD', u'\uD7FF'}));
}
