// Compares the format engine with other formatters, all with format strings that are read at run time. A
// ratio is how many times as long the other formatter takes for the same text.
//
//   snprintf  the one that this compiler links into C++ programs: mingw-w64's
//   ucrt      snprintf of the system's ucrtbase.dll
//   stb       stb_sprintf
//   fmt       {fmt}, through vformat_to_n
//   fastest   the quickest of snprintf, stb and fmt in each case
//
// If instructions are counted, nothing is timed: each case is counted once for each formatter but that of the
// system, which is not compiled by this project.
#include <cstdarg>
#include <cstdint>

#define STB_SPRINTF_IMPLEMENTATION
#include <stb/stb_sprintf.h>

// The formats are not literals: reading them at run time is what is measured.
#pragma clang diagnostic ignored "-Wformat-security"

#define FMT_HEADER_ONLY
#include <fmt/format.h>

#include "bench.h"
#include "format/format.h"
#include "values.h"

namespace {

using bench::Code;
using bench::Count;
using bench::Double;
using bench::Key;
using bench::kRows;
using bench::Long;
using bench::LongCode;
using bench::LongNumber;
using bench::Number;
using bench::WideWord;
using bench::Word;

// The capacity of a log line, with the terminator.
constexpr unsigned kBufferSize = 256;

// The same directives for the printf family and for {fmt}; null if {fmt} has no such directive.
struct Formats {
  const char* printf;
  const char* fmt;
};

struct Hx {
  template <class... Arguments>
  static unsigned Format(char* buffer, const Formats& formats, Arguments... arguments) {
    return formatString(buffer, kBufferSize, formats.printf, arguments...);
  }

  // Bound before the first call, so that no call looks whether it is.
  static inline decltype(FormatString)* const formatString =
      bench::Internal<decltype(FormatString)>("FormatString");
};

struct Snprintf {
  template <class... Arguments>
  static unsigned Format(char* buffer, const Formats& formats, Arguments... arguments) {
    return static_cast<unsigned>(std::snprintf(buffer, kBufferSize, formats.printf, arguments...));
  }
};

struct Ucrt {
  using Function = int(unsigned long long options, char* buffer, size_t size, const char* format,
                       void* locale, va_list arguments);

  static Function* Find() {
    const HMODULE module = LoadLibraryA("ucrtbase.dll");
    const FARPROC address = module ? GetProcAddress(module, "__stdio_common_vsprintf") : nullptr;
    if (!address) bench::Die("ucrtbase.dll does not export __stdio_common_vsprintf");
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
  }

  static unsigned Call(char* buffer, const char* format, ...) {
    // Behaves as the C standard requires of snprintf.
    constexpr unsigned long long kStandardSnprintf = 2;
    static Function* const function = Find();
    va_list arguments;
    va_start(arguments, format);
    const int written = function(kStandardSnprintf, buffer, kBufferSize, format, nullptr, arguments);
    va_end(arguments);
    return static_cast<unsigned>(written);
  }

  template <class... Arguments>
  static unsigned Format(char* buffer, const Formats& formats, Arguments... arguments) {
    return Call(buffer, formats.printf, arguments...);
  }
};

struct Stb {
  template <class... Arguments>
  static unsigned Format(char* buffer, const Formats& formats, Arguments... arguments) {
    return static_cast<unsigned>(stbsp_snprintf(buffer, kBufferSize, formats.printf, arguments...));
  }
};

struct Fmt {
  template <class... Arguments>
  static unsigned Format(char* buffer, const Formats& formats, Arguments... arguments) {
    if constexpr ((std::is_same_v<Arguments, const wchar_t*> || ...)) {
      return 0;
    } else {
      const auto end =
          fmt::vformat_to_n(buffer, kBufferSize - 1, formats.fmt, fmt::make_format_args(arguments...));
      *end.out = 0;
      return static_cast<unsigned>(end.size);
    }
  }
};

template <class Engine, class Arguments>
unsigned FormatRow(char* buffer, const Formats& formats, Arguments arguments, unsigned i) {
  return arguments(i, [&](auto... values) { return Engine::Format(buffer, formats, values...); });
}

template <class Engine, class Arguments>
bench::Batch MakeBatch(const Formats& formats, Arguments arguments) {
  return [formats, arguments](unsigned count) {
    char buffer[kBufferSize];
    for (unsigned i = 0; i < count; ++i) {
      bench::Keep(FormatRow<Engine>(buffer, formats, arguments, i));
      bench::Keep(buffer);
    }
  };
}

// Exits the program if an engine's text differs from the first one's: only equal work is compared.
template <class Engine, class Arguments>
void Verify(const char* engine, const Formats& formats, Arguments arguments) {
  char wanted[kBufferSize], text[kBufferSize];
  for (unsigned i = 0; i < kRows; ++i) {
    const unsigned length = FormatRow<Hx>(wanted, formats, arguments, i);
    if (FormatRow<Engine>(text, formats, arguments, i) != length || std::string(text) != wanted) {
      bench::Die("\"%s\": %s writes \"%s\" instead of \"%s\"", formats.printf, engine, text, wanted);
    }
  }
}

// Counts the instructions of all rows, from the call to its return.
template <class Engine, class Arguments>
void CountRows(const bench::Table& table, const char* engine, const Formats& formats, Arguments arguments) {
  char buffer[kBufferSize];
  for (unsigned i = 0; i < kRows; ++i) {
    arguments(i, [&](auto... values) {
      rig::MarkBegin();
      bench::Keep(Engine::Format(buffer, formats, values...));
      rig::MarkEnd();
      bench::Keep(buffer);
      return 0u;
    });
  }
  bench::WriteCount(table.Title(), engine, formats.printf);
}

// Measures one case. `arguments(i, call)` calls `call` with the values of row i.
template <class Arguments>
void Measure(bench::Table* table, Formats formats, Arguments arguments) {
  const bool wide = formats.fmt == nullptr;
  std::vector<bench::Batch> subjects = {MakeBatch<Hx>(formats, arguments),
                                        MakeBatch<Snprintf>(formats, arguments),
                                        MakeBatch<Ucrt>(formats, arguments), nullptr, nullptr};
  Verify<Snprintf>("snprintf", formats, arguments);
  Verify<Ucrt>("ucrt", formats, arguments);
  if (!wide) {
    Verify<Stb>("stb", formats, arguments);
    Verify<Fmt>("fmt", formats, arguments);
    subjects[3] = MakeBatch<Stb>(formats, arguments);
    subjects[4] = MakeBatch<Fmt>(formats, arguments);
  }
  if (rig::IsCounted()) {
    CountRows<Hx>(*table, "hx", formats, arguments);
    CountRows<Snprintf>(*table, "snprintf", formats, arguments);
    if (wide) return;
    CountRows<Stb>(*table, "stb", formats, arguments);
    CountRows<Fmt>(*table, "fmt", formats, arguments);
    return;
  }
  std::vector<double> ratios = bench::Ratios(subjects);
  ratios.push_back(wide ? ratios[0] : std::min({ratios[0], ratios[2], ratios[3]}));
  table->Add(formats.printf, ratios);
}

// Measures one case: the two formats, then the arguments as expressions of the row number i.
#define CASE(table, printfFormat, fmtFormat, ...)                       \
  Measure(table, {printfFormat, fmtFormat}, [](unsigned i, auto call) { \
    (void)i;                                                            \
    return call(__VA_ARGS__);                                           \
  })

bench::Table NewTable(const char* title) {
  return bench::Table(title, {"snprintf", "ucrt", "stb", "fmt", "fastest"});
}

void MeasureMessages() {
  bench::Table table = NewTable("The library's own messages, keys and names");
  CASE(&table, "no product code for ARP tweak", "no product code for ARP tweak");
  CASE(&table, "set ARP version to %s (%s)", "set ARP version to {} ({})", Word(i), Word(i, 1));
  CASE(&table, "can't open uninstall registry key (%s)", "can't open uninstall registry key ({})", Word(i));
  CASE(&table, "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\%s",
       "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{}", Key(i));
  CASE(&table, "%s\\%s", "{}\\{}", Word(i), Word(i, 1));
  CASE(&table, "InstallHinfSection(%s)", "InstallHinfSection({})", Word(i));
  CASE(&table, "Task install failed:  %ld", "Task install failed:  {}", Long(i));
  CASE(&table, "agent restart:  cannot open pid %ld in session %ld:  %ld",
       "agent restart:  cannot open pid {} in session {}:  {}", Long(i), Long(i, 1), Long(i, 2));
  CASE(&table, "failure %ld (0x%08lX) modifying firewall for TCP",
       "failure {} (0x{:08X}) modifying firewall for TCP", Long(i), LongCode(i));
  CASE(&table, "set ACL (%ld) for %s=%03lo", "set ACL ({}) for {}={:03o}", Long(i), Word(i), LongCode(i));
  CASE(&table, "@%s,-%d", "@{},-{}", Word(i), Count(i));
  CASE(&table, "%08lX.pky", "{:08X}.pky", LongCode(i));
  CASE(&table, "%s %04d-%02d-%02d %02d-%02d-%02d", "{} {:04}-{:02}-{:02} {:02}-{:02}-{:02}", Word(i),
       Count(i), Count(i, 1), Count(i, 2), Count(i, 3), Count(i, 4), Count(i, 5));
  CASE(&table, "%04d%02d%02d%02d%02d%02dZ", "{:04}{:02}{:02}{:02}{:02}{:02}Z", Count(i), Count(i, 1),
       Count(i, 2), Count(i, 3), Count(i, 4), Count(i, 5));
  table.Print();
}

void MeasureWideMessages() {
  bench::Table table =
      NewTable("The library's own messages with wide texts (stb and fmt have no such directive)");
  CASE(&table, "creating local service account %ls", nullptr, WideWord(i));
  CASE(&table, "setting ACL for %ls on %ls", nullptr, WideWord(i), WideWord(i, 1));
  CASE(&table, "agent restart:  session %ld (%ls) failed:  %ld", nullptr, Long(i), WideWord(i), Long(i, 1));
  CASE(&table, "failure %ld (0x%08lX) setting ACL for %ls", nullptr, Long(i), LongCode(i), WideWord(i));
  table.Print();
}

void MeasureMix() {
  bench::Table table = NewTable("A general mix");
  CASE(&table, "%d", "{}", Number(i));
  CASE(&table, "%u", "{}", Code(i));
  CASE(&table, "%lld", "{}", LongNumber(i));
  CASE(&table, "%+d", "{:+}", Number(i));
  CASE(&table, "%d, %d, %d, %d", "{}, {}, {}, {}", Number(i), Number(i, 1), Number(i, 2), Number(i, 3));
  CASE(&table, "%5d|%8d|%05d", "{:5}|{:8}|{:05}", Count(i), Count(i, 1), Count(i, 2));
  CASE(&table, "%-8d|%-12u|", "{:<8}|{:<12}|", Count(i), Code(i));
  CASE(&table, "%x", "{:x}", Code(i));
  CASE(&table, "%08X %08X", "{:08X} {:08X}", Code(i), Code(i, 1));
  CASE(&table, "0x%016llx", "0x{:016x}", LongNumber(i) & INT64_MAX);
  CASE(&table, "%o", "{:o}", Code(i));
  CASE(&table, "%s", "{}", Word(i));
  CASE(&table, "%s", "{}", Key(i));
  CASE(&table, "%s%s%s%s", "{}{}{}{}", Word(i), Word(i, 1), Word(i, 2), Word(i, 3));
  CASE(&table, "%24s|%-24s|", "{:>24}|{:<24}|", Word(i), Word(i, 1));
  CASE(&table, "%c%c%c", "{}{}{}", 'h', 'x', '!');
  CASE(&table, "%s=%d (0x%x)", "{}={} (0x{:x})", Word(i), Number(i), Code(i));
  CASE(&table, "%d%%", "{}%", Count(i));
  CASE(&table, "%f", "{:f}", Double(i));
  CASE(&table, "%e", "{:e}", Double(i));
  CASE(&table, "%g", "{:g}", Double(i));
  CASE(&table, "%12f|%-14g|", "{:12f}|{:<14g}|", Double(i), Double(i, 1));
  CASE(&table, "%s: %f %s (%d of %d)", "{}: {:f} {} ({} of {})", Word(i), Double(i), Word(i, 1), Count(i),
       Count(i, 1));
  table.Print();
}

}  // namespace

int main() {
  bench::MarkLibrary();
  std::printf("Format engine: how many times as long the others take (above 1: the engine is quicker)\n");
  MeasureMessages();
  MeasureWideMessages();
  MeasureMix();
}
