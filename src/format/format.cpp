#include "format/format.h"

#include "base/object.h"
#include "format/date_writer.h"
#include "format/directive.h"
#include "format/dump_writer.h"
#include "format/float_writer.h"
#include "format/number_writer.h"
#include "format/object_writer.h"
#include "format/plain_directive.h"
#include "format/text_writer.h"

namespace {

/// The task of a conversion. The first one is for every letter that is not in the table.
enum class Job : uint8_t {
  kLetter,       ///< writes the letter itself
  kSkipLetter,   ///< skips one argument, then writes the letter itself
  kSkipVariant,  ///< skips one argument, then writes the brace letter
  kPercent,      ///< "%"
  kSigned,
  kUnsigned,
  kOctal,
  kHex,
  kCapitalHex,
  kPointer,
  kCharacter,
  kText,
  kCountedText,
  kPascalText,
  kFourCharacters,
  kCountedDump,
  kCapitalCountedDump,
  kDump,
  kCapitalDump,
  kBase64,
  kUrlSafeBase64,
  kGuid,
  kObject,
  kFloat,
  kStamp,
  kUtcStamp,
};

/// The conversions by letter.
struct JobTable {
  static constexpr uint32_t kLetters = 128;
  Job jobs[kLetters];
};
consteval JobTable MakeJobTable() {
  constexpr struct {
    char letter;
    Job job;
  } kRows[] = {
      {'%', Job::kPercent},        {'d', Job::kSigned},      {'i', Job::kSigned},
      {'u', Job::kUnsigned},       {'o', Job::kOctal},       {'x', Job::kHex},
      {'X', Job::kCapitalHex},     {'p', Job::kPointer},     {'c', Job::kCharacter},
      {'s', Job::kText},           {'S', Job::kCountedText}, {'P', Job::kPascalText},
      {'T', Job::kFourCharacters}, {'h', Job::kCountedDump}, {'H', Job::kCapitalCountedDump},
      {'O', Job::kObject},         {'e', Job::kFloat},       {'f', Job::kFloat},
      {'g', Job::kFloat},          {'E', Job::kFloat},       {'F', Job::kFloat},
      {'G', Job::kFloat},          {'D', Job::kStamp},       {'z', Job::kStamp},
      {'Z', Job::kUtcStamp},       {'A', Job::kSkipLetter},  {'a', Job::kSkipLetter},
  };
  JobTable table{};
  for (const auto& row : kRows) table.jobs[static_cast<uint8_t>(row.letter)] = row.job;
  return table;
}
constexpr JobTable kJobs = MakeJobTable();

/// The letters after which a brace letter selects another conversion, and the conversions so selected. If the
/// brace letter is not in the table, an argument is skipped.
constexpr char kPointerLetters[] = "p";
constexpr char kIntegerLetters[] = "dxX";
constexpr char kFloatLetters[] = "efEF";
constexpr struct {
  const char* letters;
  char variant;
  Job job;
} kVariants[] = {
    {kPointerLetters, 'h', Job::kDump},     {kPointerLetters, 'H', Job::kCapitalDump},
    {kPointerLetters, 'b', Job::kBase64},   {kPointerLetters, 'B', Job::kUrlSafeBase64},
    {kPointerLetters, 'U', Job::kGuid},     {kPointerLetters, 's', Job::kText},
    {kPointerLetters, 'O', Job::kObject},   {kIntegerLetters, 'z', Job::kStamp},
    {kIntegerLetters, 'Z', Job::kUtcStamp}, {kIntegerLetters, 'T', Job::kFourCharacters},
};

bool Holds(const char* letters, char letter) {
  for (; *letters; ++letters) {
    if (*letters == letter) return true;
  }
  return false;
}

[[gnu::noinline, gnu::cold]] Job JobOfVariant(const Directive& directive, Job plain) {
  const bool selects = Holds(kPointerLetters, directive.letter) || Holds(kIntegerLetters, directive.letter) ||
                       Holds(kFloatLetters, directive.letter);
  if (!selects) return plain;
  for (const auto& entry : kVariants) {
    if (entry.variant == directive.variant && Holds(entry.letters, directive.letter)) return entry.job;
  }
  return Job::kSkipVariant;
}

Job JobOf(const Directive& directive) {
  const uint8_t letter = static_cast<uint8_t>(directive.letter);
  const Job plain = letter < JobTable::kLetters ? kJobs.jobs[letter] : Job::kLetter;
  return directive.variant ? JobOfVariant(directive, plain) : plain;
}

/// True if the dump's input length came from an argument: then the precision does not limit its output.
bool IsUncut(Job job, const Directive& directive) {
  const bool isDump =
      job == Job::kDump || job == Job::kCapitalDump || job == Job::kBase64 || job == Job::kUrlSafeBase64;
  return isDump && (directive.flags & kPrecisionArgument) != 0;
}

int64_t TakeSigned(ArgumentCursor* arguments, const Directive& directive) {
  const uint64_t slot = arguments->Take();
  return directive.flags & kWide64 ? static_cast<int64_t>(slot)
                                   : static_cast<int64_t>(static_cast<int32_t>(slot));
}

uint64_t TakeUnsigned(ArgumentCursor* arguments, const Directive& directive) {
  const uint64_t slot = arguments->Take();
  return directive.flags & kWide64 ? slot : static_cast<uint32_t>(slot);
}

void WriteFourCharacters(Output* output, uint32_t code, const Directive& directive) {
  if (code == 0) return;
  WriteText(output, reinterpret_cast<const char*>(&code), sizeof code, directive.flags, directive.width);
}

void WriteCountedText(Output* output, const char* text, uint32_t length, const Directive& directive) {
  if (!text || length == 0) return;
  WriteText(output, text, length, directive.flags, directive.width);
}

/// Does the conversions that the library's own messages seldom need.
[[gnu::noinline, gnu::cold]] void ConvertRare(Output* output, Job job, ArgumentCursor* arguments,
                                              const Directive& directive) {
  const uint32_t flags = directive.flags;
  switch (job) {
    case Job::kPercent:
      output->PutByte('%');
      break;
    case Job::kSkipLetter:
      arguments->Take();
      output->PutByte(directive.letter);
      break;
    case Job::kSkipVariant:
      arguments->Take();
      output->PutByte(directive.variant);
      break;
    case Job::kPointer: {
      Directive prefixed = directive;
      prefixed.flags |= kAlternate;
      WriteUnsigned(output, arguments->Take(), 4, false, prefixed);
      break;
    }
    case Job::kCharacter: {
      const uint32_t character = arguments->Take32();
      if (flags & kLong) {
        WriteWideCharacter(output, character, directive);
      } else {
        output->PutByte(static_cast<char>(character));
      }
      break;
    }
    case Job::kCountedText: {
      const uint32_t length = arguments->Take32();
      WriteCountedText(output, arguments->TakePointer<char>(), length, directive);
      break;
    }
    case Job::kPascalText: {
      const auto* text = arguments->TakePointer<uint8_t>();
      if (text) WriteText(output, reinterpret_cast<const char*>(text + 1), *text, flags, directive.width);
      break;
    }
    case Job::kFourCharacters:
      WriteFourCharacters(output, arguments->Take32(), directive);
      break;
    case Job::kCountedDump:
    case Job::kCapitalCountedDump: {
      const uint32_t length = arguments->Take32();
      const auto* data = arguments->TakePointer<uint8_t>();
      WriteHexDump(output, data, length, job == Job::kCapitalCountedDump, directive);
      break;
    }
    case Job::kDump:
    case Job::kCapitalDump: {
      // On purpose: a width in the directive is ignored. The width is always twice the length, so there is
      // never padding.
      Directive unpadded = directive;
      unpadded.width = 0;
      WriteHexDump(output, arguments->TakePointer<uint8_t>(), directive.inputLength, job == Job::kCapitalDump,
                   unpadded);
      break;
    }
    case Job::kBase64:
    case Job::kUrlSafeBase64:
      WriteBase64(output, arguments->TakePointer<uint8_t>(), directive.inputLength,
                  job == Job::kUrlSafeBase64);
      break;
    case Job::kGuid:
      WriteGuid(output, arguments->TakePointer<uint8_t>(), directive);
      break;
    case Job::kStamp:
      WriteStamp(output, flags & kWide64 ? static_cast<int64_t>(arguments->Take()) : arguments->Take32(),
                 directive);
      break;
    case Job::kUtcStamp:
      // A 32-bit stamp is unsigned, but signed with "l".
      WriteUtcStamp(
          output, flags & (kWide64 | kLong) ? TakeSigned(arguments, directive) : int64_t{arguments->Take32()},
          directive);
      break;
    default:
      output->PutByte(directive.letter);
      break;
  }
}

void Convert(Output* output, Job job, ArgumentCursor* arguments, const Directive& directive) {
  switch (job) {
    case Job::kSigned:
      WriteSigned(output, TakeSigned(arguments, directive), directive);
      break;
    case Job::kUnsigned:
      WriteUnsigned(output, TakeUnsigned(arguments, directive), 0, false, directive);
      break;
    case Job::kOctal:
      WriteUnsigned(output, TakeUnsigned(arguments, directive), 3, false, directive);
      break;
    case Job::kHex:
    case Job::kCapitalHex:
      WriteUnsigned(output, TakeUnsigned(arguments, directive), 4, job == Job::kCapitalHex, directive);
      break;
    case Job::kText:
      if ((directive.flags & kLong) && directive.letter == 's') {
        WriteWideText(output, arguments->TakePointer<wchar_t>(), directive);
      } else if (const char* text = arguments->TakePointer<char>()) {
        WriteText(output, text, directive.inputLength, directive.flags, directive.width);
      }
      break;
    case Job::kObject:
      WriteObject(output, reinterpret_cast<Object*>(arguments->Take()), directive);
      break;
    case Job::kFloat:
      WriteFloat(output, __builtin_bit_cast(double, arguments->Take()), directive);
      break;
    default:
      ConvertRare(output, job, arguments, directive);
      break;
  }
}

}  // namespace

unsigned FormatString(char* buffer, unsigned size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const unsigned written = FormatStringV(buffer, size, format, args);
  va_end(args);
  return written;
}

unsigned FormatStringV(char* buffer, unsigned size, const char* format, va_list args) {
  // Measuring means writing to a buffer that does not exist and has no end.
  constexpr uint32_t kMeasuringRoom = 0xFFFFFFFE;
  if (buffer && size == 0) return 0;
  const uint32_t limit = buffer ? size - 1 : kMeasuringRoom;
  ArgumentCursor arguments(args);
  Output output{buffer, limit};
  while (true) {
    char* at = output.at;
    uint32_t room = output.room;
    while (true) {
      format = CopyRun<'%'>(&at, &room, format);
      if (room < kMaxNumberLength || *format == 0 || !ConvertPlain(&at, &room, &format, &arguments)) break;
    }
    output = {at, room};
    if (*format == 0 || room == 0) break;

    Directive directive;
    format = ParseDirective(format + 1, &arguments, &directive);
    if (directive.letter == 0) break;
    const Job job = JobOf(directive);

    uint32_t held = 0;
    if (directive.precision < output.room && !IsUncut(job, directive)) {
      held = output.room - directive.precision;
      output.room = directive.precision;
    }
    Convert(&output, job, &arguments, directive);
    output.room += held;
  }
  if (buffer) *output.at = 0;
  return limit - output.room;
}
