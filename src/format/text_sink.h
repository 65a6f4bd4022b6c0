// The escapes: how each byte of a text is written for the syntax that it goes into. Used by the text writer
// and by the date patterns.
//
// Only one escape applies to a text, the first of these that its directive asks for:
//
//   +     URL: letters, digits, "-", ".", "_" and "~" stand, other bytes become "%" and two capital digits
//   ~     quoted string: a backslash before '"' and "\"; TAB becomes "\t"; LF, CR and CR LF become "\n";
//         every other control character becomes a blank
//   &     entities that begin with "%" (deliberately not with "&"): %lt; %gt; %amp; %#39; %dquo;
//   @ /   the six characters " % & ' < > become "%" and two capital digits
//   <     CDATA: a text with "&", "<" or ">" is wrapped in "<![CDATA[" and "]]>"; a ">" behind "]]" becomes a
//         blank
//   `     "'" becomes "`"; control characters but TAB become blanks
//   '''   a backslash before '"' and "\"
//   ''    "'" is doubled
//   '     a backslash before "'" and "\"
//
// Letters are folded before that. Zero bytes are dropped. Under "~", "&", "@" and "/" a UTF-8 sequence of 2
// to 6 bytes stands, and a byte that belongs to none becomes "?" ("~"), "&#ddd;" ("&", "@") or "%xx" ("/").
// An escape or such a sequence is written whole or not at all; the first one that does not fit ends the text.
#pragma once

#include "format/directive.h"
#include "format/output.h"

/// The escape of a text, in order of precedence.
enum class TextEscape : uint8_t {
  kUrl,              ///< +
  kQuotedString,     ///< ~
  kEntity,           ///< &
  kHexEntity,        ///< @
  kHexPercent,       ///< /
  kCdata,            ///< <
  kBacktick,         ///< `
  kBackslashDouble,  ///< '''
  kDoubledQuote,     ///< ''
  kBackslashQuote,   ///< '
  kNone,             ///< the bytes stand as they are
};

/// Opens a wrapped text.
constexpr char kCdataOpening[] = "<![CDATA[";
/// Closes it.
constexpr char kCdataClosing[] = "]]>";
/// Bytes that open a wrapped text.
constexpr uint32_t kCdataOpeningLength = sizeof kCdataOpening - 1;
/// Bytes that close it.
constexpr uint32_t kCdataClosingLength = sizeof kCdataClosing - 1;

/// The escape that `flags` ask for.
TextEscape ChooseEscape(uint32_t flags);

/// Writes a text, given in pieces, in its escaped form. The CDATA wrapper is not its business.
class TextSink {
 public:
  /// A sink into `output`, which must outlive it, with the escape and the folding that `flags` ask for.
  TextSink(Output* output, uint32_t flags);

  /// Writes the next piece of the text: `length` bytes, or up to the terminator. Neither a UTF-8
  /// sequence nor a CR LF may be divided between pieces.
  void Put(const char* text, uint32_t length);

  /// Whether something did not fit: nothing more is written then.
  bool Full() const { return full_; }
  /// Whether the text so far held a character that CDATA wrapping is for.
  bool HasMarkup() const { return hasMarkup_; }

 private:
  /// The written form of one unit of the text.
  struct Unit {
    char bytes[8];
    uint32_t length;
    uint32_t taken;  ///< bytes of the text that it stands for
  };
  /// The written form of the unit that begins at `at`, of which `left` bytes are there.
  void Translate(const uint8_t* at, uint32_t left, Unit* unit);

  Output* output_;
  TextEscape escape_;
  bool upper_;
  bool lower_;
  bool full_;
  bool hasMarkup_;
  /// How many "]" the text so far ends with, at most 2.
  uint8_t brackets_;
};
