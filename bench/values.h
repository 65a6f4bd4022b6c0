// Rows of values that the formatters and the messages of the library get. Used by the programs that format.
#pragma once

namespace bench {

/// The number of rows, a power of two: a formatter does not get the same values each time.
constexpr unsigned kRows = 16;

/// Numbers and codes of Windows.
inline constexpr int kNumbers[kRows] = {
    0,   7,     42,     100,     1603,     -1,      99999,      -2147024891,
    255, 65535, 123456, 7654321, 87654321, -314159, 2147483647, -2147483647 - 1};
/// Years, days, numbers of items.
inline constexpr int kCounts[kRows] = {0, 1, 3, 7, 12, 25, 31, 48, 59, 99, 128, 365, 999, 1024, 1999, 2026};
/// Codes of Windows, as bits.
inline constexpr unsigned kCodes[kRows] = {
    0,          1,          0x57,       0x643, 0x80070005, 0x80004005, 0x80041318, 0xC0000005,
    0xFFFFFFFF, 0x12345678, 0xDEADBEEF, 0x80,  0xFF,       0xABCDEF,   0x7FFFFFFF, 0x80000000};
/// Numbers that need 64 bits.
inline constexpr long long kLongNumbers[kRows] = {0,
                                                  9,
                                                  -10,
                                                  12345,
                                                  4294967296,
                                                  -4294967297,
                                                  1000000000000,
                                                  999999999999999,
                                                  1700000000,
                                                  -1700000000,
                                                  1,
                                                  2,
                                                  281474976710655,
                                                  72057594037927935,
                                                  9223372036854775807,
                                                  -9223372036854775807};
/// Floating-point numbers that all formatters write alike.
inline constexpr double kDoubles[kRows] = {0.0,     1.0,   0.1,      3.14159265358979, -2.5,   1234.5678,
                                           99999.5, 1e6,   1e-3,     -0.00042,         365.25, 6.02214,
                                           273.15,  -40.0, 0.333333, 8192.25};
/// Short 8-bit texts.
inline const char* const kWords[kRows] = {
    "site", "10.2.1.4077",   "default",      "64-bit", "options", "vantor", "host-4711", "",
    "x",    "assetLocation", "NT AUTHORITY", "Ostrel", "yes",     "logon",  "S-1-5-18",  "LocalSystem"};
/// Product codes.
inline const char* const kKeys[kRows] = {
    "{6F1C0F0E-94B5-4E2C-8B86-0C1D7A3B5E11}", "{A0E7F0B2-1D44-4D0B-9F3E-5A6B7C8D9E0F}",
    "{00000000-0000-0000-0000-000000000000}", "{12345678-9ABC-DEF0-1234-56789ABCDEF0}",
    "{6F1C0F0E-94B5-4E2C-8B86-0C1D7A3B5E12}", "{A0E7F0B2-1D44-4D0B-9F3E-5A6B7C8D9E1F}",
    "{00000000-0000-0000-0000-000000000001}", "{12345678-9ABC-DEF0-1234-56789ABCDEF1}",
    "{6F1C0F0E-94B5-4E2C-8B86-0C1D7A3B5E13}", "{A0E7F0B2-1D44-4D0B-9F3E-5A6B7C8D9E2F}",
    "{00000000-0000-0000-0000-000000000002}", "{12345678-9ABC-DEF0-1234-56789ABCDEF2}",
    "{6F1C0F0E-94B5-4E2C-8B86-0C1D7A3B5E14}", "{A0E7F0B2-1D44-4D0B-9F3E-5A6B7C8D9E3F}",
    "{00000000-0000-0000-0000-000000000003}", "{12345678-9ABC-DEF0-1234-56789ABCDEF3}"};
/// Wide texts: accounts, folders, sessions.
inline const wchar_t* const kWideWords[kRows] = {L"LocalSystem",
                                                 L"NT AUTHORITY\\LocalService",
                                                 L".\\ostrel",
                                                 L"QUILLFERN\\svc-ostrel",
                                                 L"C:\\Program Files",
                                                 L"a",
                                                 L"host-4711",
                                                 L"Console",
                                                 L"C:\\ProgramData\\Quillfern\\Ostrel\\data",
                                                 L"services",
                                                 L"Everyone",
                                                 L"operator",
                                                 L"S-1-5-32-544",
                                                 L"RDP-Tcp#17",
                                                 L"vantor",
                                                 L"D:\\data"};

/// Returns the row of a column: the columns of one text have different values.
constexpr unsigned Row(unsigned i, unsigned column = 0) {
  return (i + column * 5) % kRows;
}

/// Returns the number in row `i` of a column.
constexpr int Number(unsigned i, unsigned column = 0) {
  return kNumbers[Row(i, column)];
}
/// Returns the same as a long.
constexpr long Long(unsigned i, unsigned column = 0) {
  return kNumbers[Row(i, column)];
}
/// Returns the count in row `i` of a column.
constexpr int Count(unsigned i, unsigned column = 0) {
  return kCounts[Row(i, column)];
}
/// Returns the code in row `i` of a column.
constexpr unsigned Code(unsigned i, unsigned column = 0) {
  return kCodes[Row(i, column)];
}
/// Returns the same as an unsigned long.
constexpr unsigned long LongCode(unsigned i, unsigned column = 0) {
  return kCodes[Row(i, column)];
}
/// Returns the 64-bit number in row `i` of a column.
constexpr long long LongNumber(unsigned i, unsigned column = 0) {
  return kLongNumbers[Row(i, column)];
}
/// Returns the floating-point number in row `i` of a column.
constexpr double Double(unsigned i, unsigned column = 0) {
  return kDoubles[Row(i, column)];
}
/// Returns the 8-bit text in row `i` of a column.
inline const char* Word(unsigned i, unsigned column = 0) {
  return kWords[Row(i, column)];
}
/// Returns the product code in row `i`.
inline const char* Key(unsigned i) {
  return kKeys[Row(i)];
}
/// Returns the wide text in row `i` of a column.
inline const wchar_t* WideWord(unsigned i, unsigned column = 0) {
  return kWideWords[Row(i, column)];
}

}  // namespace bench
