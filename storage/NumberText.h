// Number reading that ignores the process locale: "." is the decimal point even when the host has switched
// the C library or the C++ global locale to one with a decimal comma.
//
// Both readers behave like the standard string-to-number conversions (std::stod, std::stoi) apart from
// the locale: leading white space is skipped, one "+" or "-" is accepted, the longest valid prefix is
// read and the rest ignored ("12.7" reads as the integer 12, "1.2.3" as the double 1.2).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

// Reads a double from the start of text. Returns std::errc{} and stores the value and the number of
// characters used; std::errc::invalid_argument when no number starts there; std::errc::result_out_of_range
// when the value overflows or underflows a double (value left alone either way). Decimal, exponent,
// "inf" and "nan" forms are read; hexadecimal floats are not (their "0" is read, as in "0x1p3" -> 0).
std::errc ReadLeadingDouble(std::string_view text, double& value, std::size_t* used = nullptr);

// Reads a base-10 signed 32-bit integer from the start of text, with the same results.
std::errc ReadLeadingInt32(std::string_view text, int32_t& value, std::size_t* used = nullptr);
