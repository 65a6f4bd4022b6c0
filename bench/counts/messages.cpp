// Counts the instructions with which the format engine makes each message of the library. The messages are
// the lines of the file that HX_MESSAGES names; their arguments are sixteen rows of typical values. Nothing
// is timed.
#include <stdarg.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

#include "bench/bench.h"
#include "bench/values.h"
#include "format/format.h"
#include "paths/path.h"

namespace {

// The capacity of a log line, with the terminator.
constexpr unsigned kBufferSize = 256;
constexpr unsigned kMaxArguments = 8;

// The arguments of a variable argument list.
struct Arguments {
  uint64_t slots[kMaxArguments] = {};
  unsigned count = 0;

  template <class Value>
  void Add(Value value) {
    if (count == kMaxArguments) bench::Die("a message has more than %u arguments", kMaxArguments);
    std::memcpy(&slots[count++], &value, sizeof value);
  }
};

// A directive of the messages, and what adds its argument for a row and a column.
struct Directive {
  const char* text;
  void (*add)(Arguments* arguments, unsigned row, unsigned column);
};

const PathObject* Folder() {
  static const PathObject* const folder = bench::Internal<decltype(PathMake)>("PathMake")(
      nullptr, "C:\\ProgramData\\Quillfern\\Ostrel\\sessions", -1);
  return folder;
}

const Directive kDirectives[] = {
    {"%ld",
     [](Arguments* arguments, unsigned row, unsigned column) { arguments->Add(bench::Long(row, column)); }},
    {"%08lX", [](Arguments* arguments, unsigned row,
                 unsigned column) { arguments->Add(bench::LongCode(row, column)); }},
    {"%03lo", [](Arguments* arguments, unsigned row,
                 unsigned column) { arguments->Add(static_cast<unsigned long>(bench::Count(row, column))); }},
    {"%s",
     [](Arguments* arguments, unsigned row, unsigned column) { arguments->Add(bench::Word(row, column)); }},
    {"%ls", [](Arguments* arguments, unsigned row,
               unsigned column) { arguments->Add(bench::WideWord(row, column)); }},
    {"%p{O}", [](Arguments* arguments, unsigned, unsigned) { arguments->Add(Folder()); }},
};

Arguments ArgumentsOf(const std::string& format, unsigned row) {
  Arguments arguments;
  for (size_t at = format.find('%'); at != std::string::npos; at = format.find('%', at + 1)) {
    const auto* directive =
        std::find_if(std::begin(kDirectives), std::end(kDirectives), [&](const Directive& candidate) {
          return format.compare(at, std::strlen(candidate.text), candidate.text) == 0;
        });
    if (directive == std::end(kDirectives)) {
      bench::Die("\"%s\": kDirectives has no value for \"%s\"", format.c_str(), format.c_str() + at);
    }
    directive->add(&arguments, row, arguments.count);
  }
  return arguments;
}

void CountMessage(const std::string& format) {
  const auto formatStringV = bench::Internal<decltype(FormatStringV)>("FormatStringV");
  char buffer[kBufferSize];
  for (unsigned row = 0; row < bench::kRows; ++row) {
    Arguments arguments = ArgumentsOf(format, row);
    const auto list = reinterpret_cast<va_list>(arguments.slots);
    // The first call is not counted: it may bind what the others find bound.
    if (row == 0) formatStringV(buffer, kBufferSize, format.c_str(), list);
    rig::MarkBegin();
    bench::Keep(formatStringV(buffer, kBufferSize, format.c_str(), list));
    rig::MarkEnd();
    bench::Keep(buffer);
  }
  bench::WriteCount("Messages", "hx", format);
}

}  // namespace

int main() {
  if (!rig::IsCounted()) bench::Die("this program only counts: ./hx bench arm64 runs it");
  bench::MarkLibrary();
  char name[MAX_PATH] = "";
  GetEnvironmentVariableA("HX_MESSAGES", name, sizeof name);
  std::ifstream file(name);
  std::string format;
  unsigned count = 0;
  while (std::getline(file, format)) {
    CountMessage(format);
    ++count;
  }
  if (count == 0) bench::Die("HX_MESSAGES must name a file with messages");
}
