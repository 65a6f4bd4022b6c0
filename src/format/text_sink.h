// The escapes: how each byte of a text is written for a target syntax. Used by the text writer and by the
// date patterns.
//
// Only one escape applies to a text, the first of these that its directive asks for:
//
//   +     URL: letters, digits, "-", ".", "_" and "~" are kept, other bytes become "%" and two capital digits
//   ~     quoted string: a backslash before '"' and "\"; TAB becomes "\t"; LF, CR and CR LF become "\n";
//         every other control character becomes a blank
//   &     entities: %lt; %gt; %amp; %#39; %dquo;
//   @ /   the six characters " % & ' < > become "%" and two capital digits
//   <     CDATA: a text with "&", "<" or ">" is wrapped in "<![CDATA[" and "]]>"; a ">" after "]]" becomes a
//         blank
//   `     "'" becomes "`"; control characters except TAB become blanks
//   '''   a backslash before '"' and "\"
//   ''    "'" is doubled
//   '     a backslash before "'" and "\"
//
// On purpose: the entities begin with "%", not with "&".
//
// Letters are folded before escaping. Zero bytes are dropped. Under "~", "&", "@" and "/" a UTF-8 sequence of
// 2 to 6 bytes is kept, and a byte outside such a sequence becomes "?" ("~"), "&#ddd;" ("&", "@") or "%xx"
// ("/"). An escape or a sequence is written whole or not at all; the first one that does not fit ends the
// text.
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
  kNone,             ///< bytes are written unchanged
};

/// The text before a wrapped text.
constexpr char kCdataOpening[] = "<![CDATA[";
/// The text after a wrapped text.
constexpr char kCdataClosing[] = "]]>";
/// The bytes of kCdataOpening without its terminator.
constexpr uint32_t kCdataOpeningLength = sizeof kCdataOpening - 1;
/// The bytes of kCdataClosing without its terminator.
constexpr uint32_t kCdataClosingLength = sizeof kCdataClosing - 1;

/// Returns the escape that `flags` ask for.
TextEscape ChooseEscape(uint32_t flags);

/// Writes a text, given in pieces, in its escaped form. The caller writes the CDATA wrapper.
class TextSink {
 public:
  /// Makes a sink into `output`, which must outlive it, with the escape and the folding that `flags` ask for.
  TextSink(Output* output, uint32_t flags);

  /// Writes the next piece of the text: `length` bytes, or up to the terminator. A piece must not end within
  /// a UTF-8 sequence or a CR LF.
  void Put(const char* text, uint32_t length);

  /// True if something did not fit; then nothing more is written.
  bool Full() const { return full_; }
  /// True if the text so far contains a character that needs CDATA wrapping.
  bool HasMarkup() const { return hasMarkup_; }

 private:
  /// The written form of one unit of the text.
  struct Unit {
    char bytes[8];
    uint32_t length;
    uint32_t taken;  ///< the bytes of the text that it replaces
  };
  /// Stores the written form of the unit at `at` in `unit`; `left` bytes of the text remain.
  void Translate(const uint8_t* at, uint32_t left, Unit* unit);

  Output* output_;
  TextEscape escape_;
  bool upper_;
  bool lower_;
  bool full_;
  bool hasMarkup_;
  /// The number of "]" at the end of the text so far, at most 2.
  uint8_t brackets_;
};
