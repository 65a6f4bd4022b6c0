// Formats with fitting arguments. The measured length is the written one, a text that does not fit is cut,
// and nothing is written after it.

#include "format/format.h"

#include "base/object.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"

namespace {

constinit Operation<unsigned(char*, unsigned, const char*, const uint64_t*)> callFormat("FormatStringV");

// What may be different in a text that is cut, or that is written into the smallest buffer.
enum Oddity : uint32_t {
  // Writes something whole or not at all, and what comes after it then begins earlier.
  kWholeOrNothing = 1,
  // Needs space for one byte more than it writes.
  kNeedsMore = 2,
  // Is measured longer than it is.
  kMeasuredLonger = 4,
  // Is wrapped, so that a cut text has the end of the whole one.
  kWrapped = 8,
};

// The most bytes that are written whole or not at all.
constexpr unsigned kLargestWhole = 40;

// An object that the engine prints; its text is the data of the run.
struct PrintedObject {
  Object object;
  std::string text;
  bool answersQuery;
};

IMAGE_ABI unsigned CopyObjectText(Object* object, char* buffer, unsigned room, int, const char*, unsigned) {
  const std::string& text = reinterpret_cast<PrintedObject*>(object)->text;
  if (!buffer) return static_cast<unsigned>(text.size());
  const size_t count = std::min<size_t>(room, text.size());
  std::copy_n(text.data(), count, buffer);
  return static_cast<unsigned>(count);
}

IMAGE_ABI UINT_PTR QueryObject(Object* object, DWORD selector, UINT_PTR, void* length, const char*,
                               unsigned) {
  auto* printed = reinterpret_cast<PrintedObject*>(object);
  if (selector != kQueryPrintableText || !printed->answersQuery) return 0;
  *static_cast<unsigned*>(length) = static_cast<unsigned>(printed->text.size());
  return reinterpret_cast<UINT_PTR>(GuardedBytes(printed->text));
}

// Makes a format and its arguments.
class FormatMaker {
 public:
  explicit FormatMaker(Data* data) : data_(data) {
    constexpr uint32_t kMostPieces = 8;
    for (uint32_t count = 1 + data_->Below(kMostPieces); count; --count) AddPiece();
  }

  const std::string& format() const { return format_; }
  const std::vector<uint64_t>& slots() const { return slots_; }
  bool Has(Oddity oddity) const { return oddities_ & oddity; }

 private:
  void AddPiece();
  void AddFlags();
  void AddNumber(bool isWidth);
  void AddModifiers();
  void AddText(const char* letters, bool isWide);
  void AddDump();
  void AddDate();
  void AddObject(const char* letters);
  void Add(const char* text) { format_ += text; }
  void Slot(uint64_t value) { slots_.push_back(value); }
  void Slot(const void* pointer) { slots_.push_back(reinterpret_cast<uint64_t>(pointer)); }

  Data* data_;
  std::string format_;
  std::vector<uint64_t> slots_;
  uint32_t oddities_ = 0;
  std::vector<std::unique_ptr<PrintedObject>> objects_;
};

constexpr uint32_t kLongestText = 60;

void FormatMaker::AddFlags() {
  constexpr char kFlags[] = "#-+'0 ,";
  uint8_t choice = data_->Byte();
  for (size_t i = 0; i + 1 < sizeof kFlags; ++i) {
    if (choice >> i & 1) format_.push_back(kFlags[i]);
  }
  // "+" escapes texts, "#" makes compact stamps.
  if (choice & 5) oddities_ |= kWholeOrNothing | kNeedsMore;
}

// Adds a width or a precision, which is given as digits or as an argument; or none.
void FormatMaker::AddNumber(bool isWidth) {
  constexpr uint32_t kMost = 400;
  constexpr uint32_t kSmall = 24;
  if (!isWidth) format_.push_back('.');
  switch (data_->Below(4)) {
    case 0:
      format_ += std::to_string(data_->Below(kSmall));
      break;
    case 1:
      format_ += std::to_string(data_->Below(kMost));
      break;
    case 2:
      format_.push_back('*');
      Slot(uint64_t{data_->Below(kMost) - 10u});
      break;
    default:
      if (!isWidth) format_.pop_back();
      break;
  }
}

void FormatMaker::AddModifiers() {
  constexpr char kModifiers[] = "'`<~&@/^_$'";
  if (!data_->Flag()) return;
  Add("{:");
  for (uint32_t count = data_->Below(4); count; --count) {
    char modifier = kModifiers[data_->Below(sizeof kModifiers - 1)];
    format_.push_back(modifier);
    oddities_ |= modifier == '<' ? kWrapped : kWholeOrNothing;
  }
  Add("}");
}

// Adds a text of a conversion that takes its input length from "*" and ".*": the text then has just that
// length, and no terminator.
void FormatMaker::AddText(const char* letters, bool isWide) {
  uint32_t length = kLongestText + 1;
  if (data_->Flag()) {
    length = data_->Below(kLongestText);
    const bool isWidth = data_->Flag();
    Add(isWidth ? "*" : ".*");
    Slot(uint64_t{length});
    if (isWidth) AddNumber(false);
    // A precision from an argument that is smaller limits the input, too.
  } else if (data_->Flag()) {
    format_ += std::to_string(data_->Below(kLongestText));
  }
  Add(letters);
  const bool isCounted = length <= kLongestText;
  if (data_->Below(16) == 0) {
    Slot(nullptr);
  } else if (isWide) {
    std::u16string text = data_->Wide(kLongestText);
    if (isCounted) text.resize(length, u'x');
    Slot(isCounted ? GuardedUnits(text) : GuardedWide(text));
  } else {
    std::string text = data_->Text(kLongestText);
    if (isCounted) text.resize(length, 'x');
    Slot(isCounted ? GuardedBytes(text) : GuardedText(text));
  }
}

// Adds a dump whose length comes from ".*".
void FormatMaker::AddDump() {
  constexpr const char* kLetters[] = {"p{h}", "p{H}", "p{b}", "p{B}"};
  std::string bytes = data_->Text(kLongestText);
  Add(".*");
  Slot(bytes.size());
  const char* letters = data_->OneOf(kLetters);
  Add(letters);
  if (!strcmp(letters, "p{B}")) oddities_ |= kMeasuredLonger;
  Slot(GuardedBytes(bytes));
}

void FormatMaker::AddDate() {
  constexpr const char* kLetters[] = {"D", "z", "d{z", "x{z", "Z", "d{Z", "X{Z"};
  constexpr char kPatternLetters[] = "ABCGHIMQSUVWXYZabhdefgjklmpucDFRTrv+zx/:ntswy#q";
  oddities_ |= kWholeOrNothing | kNeedsMore;
  const bool isWide = data_->Flag();
  if (isWide) Add("ll");
  const char* letters = data_->OneOf(kLetters);
  Add(letters);
  const bool isOpen = strchr(letters, '{');
  if (data_->Flag()) {
    Add(isOpen ? "::" : "{::");
    for (uint32_t count = data_->Below(6); count; --count) {
      format_.push_back('#');
      format_.push_back(kPatternLetters[data_->Below(sizeof kPatternLetters - 1)]);
    }
    Add("}");
  } else if (isOpen) {
    Add("}");
  }
  Slot(isWide ? data_->Take<uint64_t>() : uint64_t{data_->Take<uint32_t>()});
}

void FormatMaker::AddObject(const char* letters) {
  // An escaped text and a text that is copied are cut in different ways.
  Add(letters);
  if (data_->Flag()) Add("{:^:none}");
  if (data_->Below(8) == 0) {
    Slot(nullptr);
    return;
  }
  auto printed = std::make_unique<PrintedObject>();
  printed->text = data_->Text(kLongestText);
  const uint8_t offers = data_->Byte();
  printed->answersQuery = offers & 4;
  if (offers & 1)
    printed->object.ops.CopyText = reinterpret_cast<decltype(Object::Operations::CopyText)>(&CopyObjectText);
  if (offers & 2)
    printed->object.ops.Query = reinterpret_cast<decltype(Object::Operations::Query)>(&QueryObject);
  Slot(&printed->object);
  objects_.push_back(std::move(printed));
}

void FormatMaker::AddPiece() {
  constexpr const char* kLengths[] = {"", "l", "ll", "I64", "t", "tl"};
  constexpr const char* kOwnLetters[] = {"%", "n", "k", "y", "~"};
  const uint32_t piece = data_->Below(20);
  if (piece == 0) {
    for (char c : data_->Text(kLongestText)) format_.push_back(c == '%' || c == '\0' || c == '{' ? 'x' : c);
    return;
  }
  Add("%");
  if (piece == 1) {
    AddFlags();
    Add(data_->OneOf(kOwnLetters));
    return;
  }
  // The arguments are in their order, so a position changes nothing.
  if (data_->Below(8) == 0) format_ += std::to_string(slots_.size() + 1) + "$";
  AddFlags();
  const bool takesInputLength = piece <= 5;
  if (!takesInputLength) {
    AddNumber(true);
    AddNumber(false);
  }
  switch (piece) {
    case 2:
      AddText("s", false);
      break;
    case 3:
      AddText("ls", true);
      break;
    case 4:
      AddText("p{s}", false);
      return;
    case 5:
      AddDump();
      return;
    case 6: {
      std::string text = data_->Text(kLongestText);
      Add("S");
      Slot(text.size());
      Slot(GuardedBytes(text));
      break;
    }
    case 7: {
      std::string text = data_->Text(kLongestText);
      text.insert(text.begin(), static_cast<char>(text.size()));
      Add("P");
      Slot(GuardedBytes(text));
      break;
    }
    case 8:
      Add(data_->Flag() ? "T" : "x{T}");
      Slot(uint64_t{data_->Take<uint32_t>()});
      break;
    case 9: {
      std::string bytes = data_->Text(kLongestText);
      Add(data_->Flag() ? "h" : "H");
      Slot(bytes.size());
      Slot(GuardedBytes(bytes));
      break;
    }
    case 10: {
      constexpr size_t kGuidSize = 16;
      std::string bytes = data_->TextOf(kGuidSize);
      bytes.resize(kGuidSize);
      Add("p{U}");
      oddities_ |= kWholeOrNothing | kNeedsMore;
      Slot(GuardedBytes(bytes));
      break;
    }
    case 11:
      AddObject("O");
      break;
    case 12:
      Add("p");
      Slot(data_->Take<uint64_t>());
      break;
    case 13:
      Add(data_->Flag() ? "lc" : "c");
      Slot(uint64_t{data_->Take<uint32_t>()});
      AddModifiers();
      break;
    case 14:
    case 15: {
      constexpr const char* kLetters[] = {"e", "f", "g", "E", "F", "G"};
      Add(data_->OneOf(kLetters));
      Slot(data_->Take<uint64_t>());
      break;
    }
    case 16:
      AddDate();
      return;
    case 17:
      Add(data_->Flag() ? "a" : "d{q}");
      Slot(uint64_t{data_->Byte()});
      return;
    default: {
      constexpr const char* kLetters[] = {"d", "i", "u", "o", "x", "X"};
      Add(data_->OneOf(kLengths));
      Add(data_->OneOf(kLetters));
      Slot(data_->Take<uint64_t>());
      break;
    }
  }
  if (piece != 11 && piece != 13) AddModifiers();
}

// The length of the text that both begin with.
size_t CommonLength(const char* a, const char* b, size_t most) {
  size_t length = 0;
  while (length < most && a[length] == b[length]) ++length;
  return length;
}

}  // namespace

void RunFormats(Data* data) {
  TakeFailure(data);
  const uint16_t cut = data->Take<uint16_t>();
  if (data->Flag()) ChooseLocale(data);
  if (data->Flag()) ChooseClock(data);
  FormatMaker made(data);
  const char* format = GuardedText(made.format());
  auto* slots = static_cast<uint64_t*>(GuardedBuffer(made.slots().size() * sizeof(uint64_t)));
  std::copy(made.slots().begin(), made.slots().end(), slots);

  const unsigned measured = callFormat(nullptr, cut, format, slots);
  REQUIRE(measured < kMostGuarded - 2, "a text of %u bytes is longer than its parts", measured);
  char* whole = static_cast<char*>(GuardedBuffer(measured + 2));
  const unsigned written = callFormat(whole, measured + 2, format, slots);
  REQUIRE(written <= measured + 1, "%u bytes are written into %u", written, measured + 2);
  REQUIRE(whole[written] == '\0', "a text of %u bytes is not terminated", written);
  if (!HasFailed()) {
    const bool fits = made.Has(kMeasuredLonger) ? written <= measured : written == measured;
    REQUIRE(fits, "measured %u bytes, written %u", measured, written);
  }

  const unsigned size = cut % (measured + 2);
  char* part = static_cast<char*>(GuardedBuffer(size));
  const unsigned count = callFormat(part, size, format, slots);
  if (size == 0) {
    REQUIRE(count == 0, "%u bytes are written into none", count);
    return;
  }
  REQUIRE(count < size, "%u bytes are written into %u", count, size);
  REQUIRE(part[count] == '\0', "a cut text is not terminated");
  if (HasFailed() || made.Has(kWrapped)) return;
  const size_t room = std::min(written, size - 1);
  const size_t same = CommonLength(whole, part, std::min<size_t>(count, room));
  const size_t slack = made.Has(kWholeOrNothing) ? kLargestWhole : 0;
  REQUIRE(same + slack >= room, "a text of %u bytes that is cut to %u bytes is another one from byte %zu on",
          written, size - 1, same);
}
