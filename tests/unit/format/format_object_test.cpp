// Objects that print themselves.

#include <vector>

#include "base/object.h"
#include "paths/path.h"
#include "unit/format/format_support.h"

namespace format_test {
namespace {

/// An object that records how it is asked for its text.
struct Speaker {
  Object header{};
  std::string text;
  const char* printable = nullptr;
  bool givesLength = true;
  struct Request {
    bool measures;
    unsigned room;
    int precision;
    std::string position;
    unsigned conversion;
  };
  std::vector<Request> copies;
  std::vector<Request> queries;

  explicit Speaker(std::string what) : text(std::move(what)) {
    header.ops.CopyText = [](Object* object, char* buffer, unsigned room, int precision, const char* position,
                             unsigned conversion) -> unsigned {
      auto* self = reinterpret_cast<Speaker*>(object);
      self->copies.push_back({buffer == nullptr, room, precision, position, conversion});
      const unsigned length = static_cast<unsigned>(self->text.size());
      if (!buffer) return length;
      const unsigned count = length < room ? length : room;
      memcpy(buffer, self->text.data(), count);
      return count;
    };
    header.ops.Query = [](Object* object, DWORD selector, UINT_PTR argument, void* out, const char* position,
                          unsigned conversion) -> UINT_PTR {
      auto* self = reinterpret_cast<Speaker*>(object);
      EXPECT_EQ(selector, 0x72746E70u);
      EXPECT_EQ(argument, 0u);
      self->queries.push_back({false, 0, 0, position, conversion});
      if (self->printable && self->givesLength) {
        *static_cast<unsigned*>(out) = static_cast<unsigned>(strlen(self->printable));
      }
      return reinterpret_cast<UINT_PTR>(self->printable);
    };
  }
};

HX_INTERNAL(PathMake);

class FormatObjectTest : public FormatTest {};

TEST_F(FormatObjectTest, APathPrintsItsText) {
  PathObject* root = PathMake(nullptr, "C:\\Data", -1);
  PathObject* path = PathMake(root, "it's\\\xC3\xA9", -1);
  EXPECT_EQ(Formatted("%p{O}|%O|", path, root), "C:\\Data\\it's\\\xC3\xA9|C:\\Data|");
  EXPECT_EQ(Formatted("%-20p{O}|", path), "C:\\Data\\it's\\\xC3\xA9     |");
  EXPECT_EQ(Formatted("%+p{O}", path), "C%3A%5CData%5Cit%27s%5C%C3%A9");
  EXPECT_EQ(Formatted("%p{O:'}", path), "C:\\\\Data\\\\it\\'s\\\\\xC3\xA9");
  EXPECT_EQ(Formatted("%5p{O}|%.4p{O}|", path, path), "C:\\Da|C:\\D|");
  EXPECT_EQ(Cut(8, "%p{O}", path), "C:\\Data");
  path->ops.Release(path);
  root->ops.Release(root);
}

TEST_F(FormatObjectTest, AnObjectWritesItsTextIntoTheOutput) {
  Speaker speaker("text");
  EXPECT_EQ(Formatted("<%O|%p{O}>", &speaker, &speaker), "<text|text>");
  EXPECT_EQ(speaker.queries.size(), 0u);
  ASSERT_EQ(speaker.copies.size(), 6u);
  EXPECT_TRUE(speaker.copies[0].measures);
  EXPECT_EQ(speaker.copies[0].precision, -1);
  EXPECT_EQ(speaker.copies[2].room, 10u);
  EXPECT_EQ(speaker.copies[2].position, "|%p{O}>");
  EXPECT_EQ(speaker.copies[2].conversion, static_cast<unsigned>('O'));
  EXPECT_EQ(speaker.copies[3].room, 5u);
  EXPECT_EQ(speaker.copies[3].position, "{O}>");
  EXPECT_EQ(speaker.copies[3].conversion, static_cast<unsigned>('O'));
}

TEST_F(FormatObjectTest, WidthAndPrecisionLimitItsText) {
  Speaker speaker("abcdef");
  EXPECT_EQ(
      Formatted("%3O|%.2O|%3.2O|%2.3O|%9O|%.9O|", &speaker, &speaker, &speaker, &speaker, &speaker, &speaker),
      "abc|ab|ab|ab|abcdef|abcdef|");
  EXPECT_EQ(speaker.copies.at(1).precision, 2);
  EXPECT_EQ(Formatted("%*O|%.*O|", 3, &speaker, 2, &speaker), "abc|ab|");
  EXPECT_EQ(Cut(4, "%O", &speaker), "abc");
  EXPECT_EQ(Cut(6, "a%O", &speaker), "aabcd");
}

TEST_F(FormatObjectTest, AnObjectThatClaimsTooMuchIsCut) {
  Speaker speaker("abc");
  speaker.header.ops.CopyText = [](Object*, char* buffer, unsigned room, int, const char*,
                                   unsigned) -> unsigned {
    if (buffer) memset(buffer, 'y', room);
    return room + 100;
  };
  char text[8];
  EXPECT_EQ(FormatString(text, sizeof text, "%O", &speaker), 7u);
  EXPECT_STREQ(text, "yyyyyyy");
  EXPECT_EQ(FormatString(text, sizeof text, "%.3O{:^}", &speaker), 3u);
  EXPECT_STREQ(text, "YYY");
}

TEST_F(FormatObjectTest, AnObjectThatShrinksMeanwhileIsWrittenAsItIs) {
  Speaker speaker("abc");
  speaker.header.ops.CopyText = [](Object*, char* buffer, unsigned, int, const char*, unsigned) -> unsigned {
    if (!buffer) return 6;
    memcpy(buffer, "abc", 3);
    return 3;
  };
  EXPECT_EQ(Formatted("%O{:^}|%-5O|", &speaker, &speaker), "ABC|abc  |");
}

TEST_F(FormatObjectTest, ATextToChangeIsFirstAskedForAsPrintableText) {
  Speaker speaker("copied");
  speaker.printable = "a<b c";
  EXPECT_EQ(Formatted("%O{:&}", &speaker), "a%lt;b c");
  EXPECT_EQ(Formatted("%+p{O}", &speaker), "a%3Cb%20c");
  EXPECT_EQ(Formatted("%-8O|", &speaker), "a<b c   |");
  EXPECT_EQ(Formatted("%O{:^}", &speaker), "A<B C");
  EXPECT_EQ(Formatted("%8O{:^}|%.3O{:^}|", &speaker, &speaker), "   A<B C|A<B|");
  EXPECT_EQ(speaker.copies.size(), 0u);
  EXPECT_EQ(speaker.queries.at(0).position, "{:&}");
  EXPECT_EQ(speaker.queries.at(0).conversion, static_cast<unsigned>('O'));
  // An answer without a length is read up to its terminator.
  speaker.givesLength = false;
  EXPECT_EQ(Formatted("%-8O|", &speaker), "a<b c   |");
}

TEST_F(FormatObjectTest, WithoutAPrintableTextItIsCopiedAndChanged) {
  Speaker speaker("a<b");
  EXPECT_EQ(Formatted("%O{:&}|%p{O:_}|%+O|%-5O|%5O{:&}|", &speaker, &speaker, &speaker, &speaker, &speaker),
            "a%lt;b|a<b|a%3Cb|a<b  |a%lt;b|");
  EXPECT_EQ(speaker.queries.size(), 15u);
  EXPECT_EQ(speaker.copies.size(), 30u);
  EXPECT_TRUE(speaker.copies[0].measures);
  EXPECT_FALSE(speaker.copies[1].measures);
  EXPECT_EQ(speaker.copies[1].room, 3u);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FormatObjectTest, WithoutMemoryNothingIsWritten) {
  Speaker speaker("a<b");
  TheRig().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> LPVOID { return nullptr; });
  EXPECT_EQ(Formatted("<%O{:&}|%-5O|%O>", &speaker, &speaker, &speaker), "<||a<b>");
}

TEST_F(FormatObjectTest, MissingOperationsCountAsNoBytes) {
  Speaker speaker("text");
  speaker.header.ops.Query = nullptr;
  EXPECT_EQ(Formatted("%O{:^}|%O|", &speaker, &speaker), "TEXT|text|");
  speaker.header.ops.CopyText = nullptr;
  EXPECT_EQ(Formatted("%O{:^}|%O|%5O|%-5O|", &speaker, &speaker, &speaker, &speaker), "|||     |");
}

TEST_F(FormatObjectTest, AnEmptyTextNeedsNoMemory) {
  Speaker speaker("");
  TheRig().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> LPVOID {
    ADD_FAILURE() << "memory for nothing";
    return nullptr;
  });
  EXPECT_EQ(Formatted("%O{:^}|%O|%-3O|", &speaker, &speaker, &speaker), "||   |");
}

TEST_F(FormatObjectTest, ANullObjectWritesTheBraceText) {
  EXPECT_EQ(Formatted("<%O|%p{O}|%5O>", nullptr, nullptr, nullptr), "<||>");
  EXPECT_EQ(Formatted("<%O{::none}|%p{O::no path}>", nullptr, nullptr), "<none|no path>");
  EXPECT_EQ(Formatted("<%O{:^:none}|%6O{::none}|%.2O{::none}>", nullptr, nullptr, nullptr),
            "<NONE|  none|no>");
  EXPECT_EQ(Formatted("<%O{::}>", nullptr), "<>");
}

}  // namespace
}  // namespace format_test
