// Formats with fitting arguments. The measured length is the written one, and a text that does not fit is cut
// exactly where the engine promises it: each directive is also formatted alone, and what a buffer of any size
// must hold is put together from these texts.

#include "format/format.h"

#include "base/object.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"

namespace {

constinit Operation<unsigned(char*, unsigned, const char*, const uint64_t*)> callFormat("FormatStringV");

// How the text of a directive is cut if it does not fit.
enum class Cut {
  kAnywhere,  // at any byte
  kUnits,     // escapes and characters are written whole, so a few bytes may stay free
  kWrapped,   // the wrapper is written whole, and the text in it is cut
};

// A unit that does not fit can leave this many bytes free: the longest unit has one more.
constexpr size_t kMostFree = 5;

// A literal text or one directive of a format.
struct Piece {
  std::string text;             // what follows the position
  bool isPositioned = false;    // the text has the position of its first argument before it
  bool isDirective = false;     // the text has a "%" before it
  size_t firstSlot = 0;         // its first argument
  Cut cut = Cut::kAnywhere;     // how its text is cut
  bool isNumber = false;        // what is before a wrapper may be a part of the number
  unsigned measuredLonger = 0;  // the bytes by which its measure is too long
  // With less space nothing is written: that of the text with a terminator, even if something follows it.
  size_t leastSpace = 0;
};

// An object that the engine prints; its text is the data of the run.
struct PrintedObject {
  Object object;
  std::string text;
  bool answersQuery;
  char* printable = nullptr;  // where QueryObject has put the text
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
  if (!printed->printable) printed->printable = GuardedBytes(printed->text);
  return reinterpret_cast<UINT_PTR>(printed->printable);
}

// Makes a format and its arguments.
class FormatMaker {
 public:
  explicit FormatMaker(Data* data) : data_(data) {
    constexpr uint32_t kMostPieces = 8;
    for (uint32_t count = 1 + data_->Below(kMostPieces); count; --count) AddPiece();
  }

  // Returns the format of all pieces.
  std::string Whole() const;
  // Returns the format of one piece, whose arguments begin with its own first one.
  static std::string Alone(const Piece& piece);
  const std::vector<Piece>& pieces() const { return pieces_; }
  const std::vector<uint64_t>& slots() const { return slots_; }

 private:
  void AddPiece();
  void AddFlags();
  void AddNumber(bool isWidth);
  void AddModifiers();
  void AddText(const char* letters, bool isWide);
  void AddDump();
  void AddDate();
  void AddObject(const char* letters);
  void AddEscape(Cut cut);
  Piece& piece() { return pieces_.back(); }
  void Add(const std::string& text) { piece().text += text; }
  void Slot(uint64_t value) { slots_.push_back(value); }
  void Slot(const void* pointer) { slots_.push_back(reinterpret_cast<uint64_t>(pointer)); }

  Data* data_;
  std::vector<Piece> pieces_;
  std::vector<uint64_t> slots_;
  std::vector<std::unique_ptr<PrintedObject>> objects_;
};

constexpr uint32_t kLongestText = 60;

std::string FormatMaker::Alone(const Piece& piece) {
  if (!piece.isDirective) return piece.text;
  return (piece.isPositioned ? "%1$" : "%") + piece.text;
}

std::string FormatMaker::Whole() const {
  std::string format;
  for (const Piece& piece : pieces_) {
    if (piece.isDirective) format.push_back('%');
    if (piece.isPositioned) format += std::to_string(piece.firstSlot + 1) + "$";
    format += piece.text;
  }
  return format;
}

// Notes that the text of the piece is escaped; `cut` is kWrapped or kUnits. An escape of units comes first.
void FormatMaker::AddEscape(Cut cut) {
  if (piece().cut != Cut::kUnits) piece().cut = cut;
}

void FormatMaker::AddFlags() {
  constexpr char kFlags[] = "#-+'0 ,";
  uint8_t choice = data_->Byte();
  for (size_t i = 0; i + 1 < sizeof kFlags; ++i) {
    if (choice >> i & 1) piece().text.push_back(kFlags[i]);
  }
}

// Adds a width or a precision, which is given as digits or as an argument; or none.
void FormatMaker::AddNumber(bool isWidth) {
  constexpr uint32_t kMost = 400;
  constexpr uint32_t kSmall = 24;
  if (!isWidth) Add(".");
  switch (data_->Below(4)) {
    case 0:
      Add(std::to_string(data_->Below(kSmall)));
      break;
    case 1:
      Add(std::to_string(data_->Below(kMost)));
      break;
    case 2:
      Add("*");
      Slot(uint64_t{data_->Below(kMost) - 10u});
      break;
    default:
      if (!isWidth) piece().text.pop_back();
      break;
  }
}

void FormatMaker::AddModifiers() {
  constexpr char kModifiers[] = "'`<~&@/^_$'";
  if (!data_->Flag()) return;
  // A letter in braces comes before the modifiers.
  if (piece().text.back() == '}') {
    piece().text.back() = ':';
  } else {
    Add("{:");
  }
  bool hasQuote = false;
  for (uint32_t count = data_->Below(4); count; --count) {
    char modifier = kModifiers[data_->Below(sizeof kModifiers - 1)];
    piece().text.push_back(modifier);
    // The others change single bytes.
    if (strchr("~&@/", modifier)) AddEscape(Cut::kUnits);
    if (modifier == '<') AddEscape(Cut::kWrapped);
    hasQuote = hasQuote || modifier == '\'';
  }
  // The wrapper comes before the escape of quotation marks.
  if (hasQuote && piece().cut == Cut::kAnywhere) AddEscape(Cut::kUnits);
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
    Add(std::to_string(data_->Below(kLongestText)));
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
  // The last group of three bytes is measured as a whole one.
  if (!strcmp(letters, "p{B}")) piece().measuredLonger = static_cast<unsigned>((3 - bytes.size() % 3) % 3);
  Slot(GuardedBytes(bytes));
}

void FormatMaker::AddDate() {
  constexpr const char* kLetters[] = {"D", "z", "d{z", "x{z", "Z", "d{Z", "X{Z"};
  constexpr char kPatternLetters[] = "ABCGHIMQSUVWXYZabhdefgjklmpucDFRTrv+zx/:ntswy#q";
  const bool isCompact = piece().text.find('#') != std::string::npos;
  const bool isWide = data_->Flag();
  if (isWide) Add("ll");
  const char* letters = data_->OneOf(kLetters);
  Add(letters);
  const bool isOpen = strchr(letters, '{');
  const size_t compactSpace = strchr(letters, 'Z') ? sizeof "20000101000000Z" : sizeof "20000101000000+0000";
  if (data_->Flag()) {
    Add(isOpen ? "::" : "{::");
    const uint32_t letterCount = data_->Below(6);
    for (uint32_t i = 0; i < letterCount; ++i) {
      Add("#");
      piece().text.push_back(kPatternLetters[data_->Below(sizeof kPatternLetters - 1)]);
    }
    Add("}");
    if (isCompact && !letterCount) piece().leastSpace = compactSpace;
  } else {
    if (isOpen) Add("}");
    if (isCompact) piece().leastSpace = compactSpace;
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
  const uint32_t kind = data_->Below(20);
  pieces_.emplace_back();
  piece().firstSlot = slots_.size();
  if (kind == 0) {
    for (char c : data_->Text(kLongestText))
      piece().text.push_back(c == '%' || c == '\0' || c == '{' ? 'x' : c);
    return;
  }
  piece().isDirective = true;
  if (kind == 1) {
    AddFlags();
    Add(data_->OneOf(kOwnLetters));
    return;
  }
  // The arguments are in their order, so a position changes nothing.
  piece().isPositioned = data_->Below(8) == 0;
  AddFlags();
  const bool isPlus = piece().text.find('+') != std::string::npos;
  // "+" escapes texts. Of the other conversions it is a sign, or nothing.
  if (isPlus && (kind <= 4 || (kind >= 6 && kind <= 8) || kind == 11 || kind == 13)) AddEscape(Cut::kUnits);
  piece().isNumber = kind > 17;
  const bool takesInputLength = kind <= 5;
  if (!takesInputLength) {
    AddNumber(true);
    AddNumber(false);
  }
  switch (kind) {
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
      piece().leastSpace = 2 * kGuidSize + sizeof "----";
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
  if (kind != 11 && kind != 13) AddModifiers();
}

// The largest buffers of one run, which is far more than the longest text.
constexpr unsigned kLargestBuffer = 1 << 15;

// Runs the engine with a buffer of `size` bytes at an unreadable page. Returns what it wrote.
std::string Written(const char* format, const uint64_t* slots, unsigned size, char* end) {
  constexpr int kRubbish = 0xA5;
  char* buffer = end - size;
  memset(buffer, kRubbish, size);
  const unsigned count = callFormat(buffer, size, format, slots);
  if (size == 0) {
    REQUIRE(count == 0, "%u bytes are written into none", count);
    return {};
  }
  REQUIRE(count < size, "%u bytes are written into %u", count, size);
  REQUIRE(buffer[count] == '\0', "a text of %u bytes is not terminated", count);
  return {buffer, count};
}

// Returns what remains of `text`, the text of a piece in a wrapper, in `room` bytes.
std::string CutInWrapper(const std::string& text, size_t room) {
  constexpr std::string_view kOpening = "<![CDATA[", kClosing = "]]>";
  const size_t opening = text.find(kOpening), inside = opening + kOpening.size();
  const size_t closing = text.find(kClosing, inside);
  REQUIRE(closing != std::string::npos, "a wrapped text has no end: \"%s\"", text.c_str());
  if (room < inside + kClosing.size()) return {};
  const size_t kept = std::min(closing - inside, room - inside - kClosing.size());
  std::string cut = text.substr(0, inside + kept);
  cut += kClosing;
  cut += text.substr(closing + kClosing.size(), room - cut.size());
  return cut;
}

// A format and its arguments, in places that the engine can read.
class Formatting {
 public:
  explicit Formatting(const FormatMaker& made) : made_(made) {
    format_ = GuardedText(made.Whole());
    slots_ = static_cast<uint64_t*>(GuardedBuffer(made.slots().size() * sizeof(uint64_t)));
    std::copy(made.slots().begin(), made.slots().end(), slots_);
    end_ = static_cast<char*>(GuardedBuffer(kLargestBuffer)) + kLargestBuffer;
  }

  unsigned Measure(unsigned size) const { return callFormat(nullptr, size, format_, slots_); }
  // Writes the format into a buffer of `size` bytes.
  std::string Write(unsigned size) const { return Written(format_, slots_, size, end_); }
  // Formats each piece alone. Returns the length of all.
  size_t FormatPieces();
  // Checks what the format writes into a buffer of `size` bytes, which is not 0. FormatPieces comes first.
  void Check(unsigned size) const;
  // The bytes by which the measure is longer than the text.
  unsigned measuredLonger() const { return measuredLonger_; }

 private:
  std::string WrittenAlone(size_t piece, unsigned size) const;
  std::string CutText(size_t piece, size_t room) const;

  const FormatMaker& made_;
  const char* format_;
  uint64_t* slots_;
  char* end_;
  std::vector<std::string> texts_;
  unsigned measuredLonger_ = 0;
};

std::string Formatting::WrittenAlone(size_t piece, unsigned size) const {
  const Piece& each = made_.pieces()[piece];
  return Written(FormatMaker::Alone(each).c_str(), slots_ + each.firstSlot, size, end_);
}

size_t Formatting::FormatPieces() {
  size_t length = 0;
  for (size_t i = 0; i < made_.pieces().size(); ++i) {
    texts_.push_back(WrittenAlone(i, kLargestBuffer));
    length += texts_.back().size();
    measuredLonger_ += made_.pieces()[i].measuredLonger;
  }
  return length;
}

// Returns what remains of a piece's text that does not fit into `room` bytes.
std::string Formatting::CutText(size_t piece, size_t room) const {
  const Piece& each = made_.pieces()[piece];
  const std::string& text = texts_[piece];
  const bool isWrapped = each.cut == Cut::kWrapped && text.find("<![CDATA[") != std::string::npos;
  if (room < each.leastSpace) return {};
  if (isWrapped && !each.isNumber) return CutInWrapper(text, room);
  if (!isWrapped && each.cut != Cut::kUnits) return text.substr(0, room);
  // Where the units end, only the engine knows.
  std::string cut = WrittenAlone(piece, static_cast<unsigned>(room) + 1);
  if (isWrapped) {
    const size_t prefix = text.find("<![CDATA[");
    REQUIRE(cut == text.substr(0, std::min(prefix, cut.size())) || cut == CutInWrapper(text, room),
            "a wrapped number is cut to \"%s\"", cut.c_str());
    return cut;
  }
  REQUIRE(cut.size() + kMostFree >= room, "of \"%s\" only %zu bytes are written into %zu", text.c_str(),
          cut.size(), room);
  REQUIRE(text.compare(0, cut.size(), cut) == 0, "the text \"%s\" is cut to another one, \"%s\"",
          text.c_str(), cut.c_str());
  return cut;
}

void Formatting::Check(unsigned size) const {
  std::string expected;
  for (size_t i = 0; i < texts_.size() && expected.size() < size - 1; ++i) {
    const size_t room = size - 1 - expected.size();
    const bool isWhole = texts_[i].size() <= room && room >= made_.pieces()[i].leastSpace;
    expected += isWhole || texts_[i].empty() ? texts_[i] : CutText(i, room);
  }
  const std::string written = Write(size);
  REQUIRE(written == expected, "the format \"%s\" in %u bytes is \"%s\", not \"%s\"", format_, size,
          written.c_str(), expected.c_str());
}

}  // namespace

void RunFormats(Data* data) {
  TakeFailure(data);
  const uint16_t cut = data->Take<uint16_t>();
  if (data->Flag()) ChooseLocale(data);
  if (data->Flag()) ChooseClock(data);
  const FormatMaker made(data);
  Formatting formatting(made);
  if (world.failing) {
    // What is left out because of a failure cannot be foreseen. It must not be more than there is space for.
    formatting.Write(1 + cut % kLargestBuffer);
    formatting.Write(cut % (formatting.Measure(cut) + 2));
    world.failing = 0;
  }
  const unsigned measured = formatting.Measure(cut);
  REQUIRE(measured < kLargestBuffer - 2, "a text of %u bytes is longer than its parts", measured);
  const size_t length = formatting.FormatPieces();
  REQUIRE(measured == length + formatting.measuredLonger(), "measured %u bytes, written %zu", measured,
          length);
  formatting.Check(measured + 2);
  formatting.Check(measured + 1);
  const unsigned size = cut % (measured + 2);
  if (size == 0) {
    formatting.Write(0);
  } else {
    formatting.Check(size);
  }
}
