// Where Unicode full case folding differs from simple lower-casing, taken from the Unicode character
// database (14.0): characters that fold to several ("\u00DF" -> "ss") or to another letter than their
// lower case (Cherokee folds to its capitals, U+00B5 to Greek mu, final sigma to sigma). Systems that
// offer lower-casing only (Windows, and GNUstep standing in for Foundation) fold with FoldWithTable.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>

#include "bridge/BridgeText.h"

namespace brivane::bridge {

struct FoldingRange {
    char32_t first, last;  // code points, inclusive
    int32_t delta;         // added to the code point, when fold is null
    const char16_t* fold;  // the folded text of a single code point
};

// Sorted by code point.
inline constexpr FoldingRange kFullFolding[] = {
    {0x00B5, 0x00B5, 775, nullptr},
    {0x00DF, 0x00DF, 0, u"ss"},
    {0x0130, 0x0130, 0, u"i\u0307"},
    {0x0149, 0x0149, 0, u"\u02BCn"},
    {0x017F, 0x017F, -268, nullptr},
    {0x01F0, 0x01F0, 0, u"j\u030C"},
    {0x0345, 0x0345, 116, nullptr},
    {0x0390, 0x0390, 0, u"\u03B9\u0308\u0301"},
    {0x03B0, 0x03B0, 0, u"\u03C5\u0308\u0301"},
    {0x03C2, 0x03C2, 1, nullptr},
    {0x03D0, 0x03D0, -30, nullptr},
    {0x03D1, 0x03D1, -25, nullptr},
    {0x03D5, 0x03D5, -15, nullptr},
    {0x03D6, 0x03D6, -22, nullptr},
    {0x03F0, 0x03F0, -54, nullptr},
    {0x03F1, 0x03F1, -48, nullptr},
    {0x03F5, 0x03F5, -64, nullptr},
    {0x0587, 0x0587, 0, u"\u0565\u0582"},
    {0x13A0, 0x13F5, 0, nullptr},
    {0x13F8, 0x13FD, -8, nullptr},
    {0x1C80, 0x1C80, -6222, nullptr},
    {0x1C81, 0x1C81, -6221, nullptr},
    {0x1C82, 0x1C82, -6212, nullptr},
    {0x1C83, 0x1C84, -6210, nullptr},
    {0x1C85, 0x1C85, -6211, nullptr},
    {0x1C86, 0x1C86, -6204, nullptr},
    {0x1C87, 0x1C87, -6180, nullptr},
    {0x1C88, 0x1C88, 35267, nullptr},
    {0x1E96, 0x1E96, 0, u"h\u0331"},
    {0x1E97, 0x1E97, 0, u"t\u0308"},
    {0x1E98, 0x1E98, 0, u"w\u030A"},
    {0x1E99, 0x1E99, 0, u"y\u030A"},
    {0x1E9A, 0x1E9A, 0, u"a\u02BE"},
    {0x1E9B, 0x1E9B, -58, nullptr},
    {0x1E9E, 0x1E9E, 0, u"ss"},
    {0x1F50, 0x1F50, 0, u"\u03C5\u0313"},
    {0x1F52, 0x1F52, 0, u"\u03C5\u0313\u0300"},
    {0x1F54, 0x1F54, 0, u"\u03C5\u0313\u0301"},
    {0x1F56, 0x1F56, 0, u"\u03C5\u0313\u0342"},
    {0x1F80, 0x1F80, 0, u"\u1F00\u03B9"},
    {0x1F81, 0x1F81, 0, u"\u1F01\u03B9"},
    {0x1F82, 0x1F82, 0, u"\u1F02\u03B9"},
    {0x1F83, 0x1F83, 0, u"\u1F03\u03B9"},
    {0x1F84, 0x1F84, 0, u"\u1F04\u03B9"},
    {0x1F85, 0x1F85, 0, u"\u1F05\u03B9"},
    {0x1F86, 0x1F86, 0, u"\u1F06\u03B9"},
    {0x1F87, 0x1F87, 0, u"\u1F07\u03B9"},
    {0x1F88, 0x1F88, 0, u"\u1F00\u03B9"},
    {0x1F89, 0x1F89, 0, u"\u1F01\u03B9"},
    {0x1F8A, 0x1F8A, 0, u"\u1F02\u03B9"},
    {0x1F8B, 0x1F8B, 0, u"\u1F03\u03B9"},
    {0x1F8C, 0x1F8C, 0, u"\u1F04\u03B9"},
    {0x1F8D, 0x1F8D, 0, u"\u1F05\u03B9"},
    {0x1F8E, 0x1F8E, 0, u"\u1F06\u03B9"},
    {0x1F8F, 0x1F8F, 0, u"\u1F07\u03B9"},
    {0x1F90, 0x1F90, 0, u"\u1F20\u03B9"},
    {0x1F91, 0x1F91, 0, u"\u1F21\u03B9"},
    {0x1F92, 0x1F92, 0, u"\u1F22\u03B9"},
    {0x1F93, 0x1F93, 0, u"\u1F23\u03B9"},
    {0x1F94, 0x1F94, 0, u"\u1F24\u03B9"},
    {0x1F95, 0x1F95, 0, u"\u1F25\u03B9"},
    {0x1F96, 0x1F96, 0, u"\u1F26\u03B9"},
    {0x1F97, 0x1F97, 0, u"\u1F27\u03B9"},
    {0x1F98, 0x1F98, 0, u"\u1F20\u03B9"},
    {0x1F99, 0x1F99, 0, u"\u1F21\u03B9"},
    {0x1F9A, 0x1F9A, 0, u"\u1F22\u03B9"},
    {0x1F9B, 0x1F9B, 0, u"\u1F23\u03B9"},
    {0x1F9C, 0x1F9C, 0, u"\u1F24\u03B9"},
    {0x1F9D, 0x1F9D, 0, u"\u1F25\u03B9"},
    {0x1F9E, 0x1F9E, 0, u"\u1F26\u03B9"},
    {0x1F9F, 0x1F9F, 0, u"\u1F27\u03B9"},
    {0x1FA0, 0x1FA0, 0, u"\u1F60\u03B9"},
    {0x1FA1, 0x1FA1, 0, u"\u1F61\u03B9"},
    {0x1FA2, 0x1FA2, 0, u"\u1F62\u03B9"},
    {0x1FA3, 0x1FA3, 0, u"\u1F63\u03B9"},
    {0x1FA4, 0x1FA4, 0, u"\u1F64\u03B9"},
    {0x1FA5, 0x1FA5, 0, u"\u1F65\u03B9"},
    {0x1FA6, 0x1FA6, 0, u"\u1F66\u03B9"},
    {0x1FA7, 0x1FA7, 0, u"\u1F67\u03B9"},
    {0x1FA8, 0x1FA8, 0, u"\u1F60\u03B9"},
    {0x1FA9, 0x1FA9, 0, u"\u1F61\u03B9"},
    {0x1FAA, 0x1FAA, 0, u"\u1F62\u03B9"},
    {0x1FAB, 0x1FAB, 0, u"\u1F63\u03B9"},
    {0x1FAC, 0x1FAC, 0, u"\u1F64\u03B9"},
    {0x1FAD, 0x1FAD, 0, u"\u1F65\u03B9"},
    {0x1FAE, 0x1FAE, 0, u"\u1F66\u03B9"},
    {0x1FAF, 0x1FAF, 0, u"\u1F67\u03B9"},
    {0x1FB2, 0x1FB2, 0, u"\u1F70\u03B9"},
    {0x1FB3, 0x1FB3, 0, u"\u03B1\u03B9"},
    {0x1FB4, 0x1FB4, 0, u"\u03AC\u03B9"},
    {0x1FB6, 0x1FB6, 0, u"\u03B1\u0342"},
    {0x1FB7, 0x1FB7, 0, u"\u03B1\u0342\u03B9"},
    {0x1FBC, 0x1FBC, 0, u"\u03B1\u03B9"},
    {0x1FBE, 0x1FBE, -7173, nullptr},
    {0x1FC2, 0x1FC2, 0, u"\u1F74\u03B9"},
    {0x1FC3, 0x1FC3, 0, u"\u03B7\u03B9"},
    {0x1FC4, 0x1FC4, 0, u"\u03AE\u03B9"},
    {0x1FC6, 0x1FC6, 0, u"\u03B7\u0342"},
    {0x1FC7, 0x1FC7, 0, u"\u03B7\u0342\u03B9"},
    {0x1FCC, 0x1FCC, 0, u"\u03B7\u03B9"},
    {0x1FD2, 0x1FD2, 0, u"\u03B9\u0308\u0300"},
    {0x1FD3, 0x1FD3, 0, u"\u03B9\u0308\u0301"},
    {0x1FD6, 0x1FD6, 0, u"\u03B9\u0342"},
    {0x1FD7, 0x1FD7, 0, u"\u03B9\u0308\u0342"},
    {0x1FE2, 0x1FE2, 0, u"\u03C5\u0308\u0300"},
    {0x1FE3, 0x1FE3, 0, u"\u03C5\u0308\u0301"},
    {0x1FE4, 0x1FE4, 0, u"\u03C1\u0313"},
    {0x1FE6, 0x1FE6, 0, u"\u03C5\u0342"},
    {0x1FE7, 0x1FE7, 0, u"\u03C5\u0308\u0342"},
    {0x1FF2, 0x1FF2, 0, u"\u1F7C\u03B9"},
    {0x1FF3, 0x1FF3, 0, u"\u03C9\u03B9"},
    {0x1FF4, 0x1FF4, 0, u"\u03CE\u03B9"},
    {0x1FF6, 0x1FF6, 0, u"\u03C9\u0342"},
    {0x1FF7, 0x1FF7, 0, u"\u03C9\u0342\u03B9"},
    {0x1FFC, 0x1FFC, 0, u"\u03C9\u03B9"},
    {0xAB70, 0xABBF, -38864, nullptr},
    {0xFB00, 0xFB00, 0, u"ff"},
    {0xFB01, 0xFB01, 0, u"fi"},
    {0xFB02, 0xFB02, 0, u"fl"},
    {0xFB03, 0xFB03, 0, u"ffi"},
    {0xFB04, 0xFB04, 0, u"ffl"},
    {0xFB05, 0xFB05, 0, u"st"},
    {0xFB06, 0xFB06, 0, u"st"},
    {0xFB13, 0xFB13, 0, u"\u0574\u0576"},
    {0xFB14, 0xFB14, 0, u"\u0574\u0565"},
    {0xFB15, 0xFB15, 0, u"\u0574\u056B"},
    {0xFB16, 0xFB16, 0, u"\u057E\u0576"},
    {0xFB17, 0xFB17, 0, u"\u0574\u056D"},
};

inline const FoldingRange* FindFolding(char32_t c) {
    const auto* range = std::upper_bound(std::begin(kFullFolding), std::end(kFullFolding), c,
                                         [](char32_t v, const FoldingRange& r) { return v < r.first; });
    if (range == std::begin(kFullFolding) || (--range)->last < c) return nullptr;
    return range;
}

// Full case folding of repaired UTF-16 from a system's lower-casing: the table's characters from the
// table, each run between them through lower(run, out), which appends the run's lower case to out and
// returns false on failure.
template <class LowerCase>
bool FoldWithTable(const std::u16string& text, std::u16string& out, LowerCase lower) {
    out.clear();
    std::u16string run;
    bool ok = true;
    ForEachCodePoint(text, [&](char32_t c) {
        const FoldingRange* folding = FindFolding(c);
        if (folding == nullptr) {
            AppendCodePoint(run, c);
            return;
        }
        ok = ok && lower(run, out);
        run.clear();
        if (folding->fold != nullptr) {
            out += folding->fold;
        } else {
            AppendCodePoint(out, static_cast<char32_t>(static_cast<int32_t>(c) + folding->delta));
        }
    });
    return ok && lower(run, out);
}

}  // namespace brivane::bridge
