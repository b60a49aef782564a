#include "trace/text_check.h"

#include "trace/built.h"

using namespace std::string_literals;
using namespace zel_test;

namespace {

// The quick test of eight bytes agrees with the table at every place of a word.
TEST(TextCheck, EveryByteAtEveryPlace) {
    const std::string controls = "\0\x07\x08\x09\x0A\x0C\x0D\x1B"s;
    for (int byte = 0; byte < 0x100; ++byte)
        for (size_t place = 0; place < 17; ++place) {
            std::string text(17, '~');
            text[place] = static_cast<char>(byte);
            const bool expected = (byte >= 0x20 && byte < 0x7F) || controls.find(text[place]) != controls.npos;
            ASSERT_EQ(IsAsciiText(text.data(), text.size()), expected) << byte << " at " << place;
        }
}

TEST(TextCheck, Utf8) {
    const std::pair<bool, std::vector<std::string>> texts[] = {
        {true,
         {"\xC3\xA4"s, "a\xE4\xB8\xAD\0b\xF0\x9F\x98\x80"s, "\xC3\xA4 cut off \xE4\xB8"s, "overlong \xC0\x80"s,
          "surrogate \xED\xA0\x80"s, "\xF8\x80\x80\x80\x80"s, "\xFC\x80\x80\x80\x80\x80"s, "padded \xC3\xA4\0\0"s}},
        {false,
         {""s, "plain"s, "\xE9"s, "cut off \xE4\xB8"s, "\xC3\xA4\x01"s, "\xC3\xA4\x0B"s, "\xC3\xA4\x7F"s,
          "\xC3\xA4\x80"s, "\xC3\xA4\xFE\x80\x80\x80\x80\x80\x80"s, "\xC3\xA4\xFF"s, "\xC3("s,
          "\xC3\xA4 cut off and padded \xE4\xB8\0"s}}};
    for (const auto& [good, list] : texts)
        for (const std::string& text : list) {
            // A copy without room behind it, so that a read past the end is seen under the sanitizer.
            const std::vector<char> exact(text.begin(), text.end());
            EXPECT_EQ(IsUtf8Text(exact.data(), exact.size()), good) << testing::PrintToString(text);
        }
    LogCapture::get().take();
    EXPECT_TRUE(CheckDsStr("") && CheckDsStr("plain") && CheckDsStr("\xC3\xA4"));
    EXPECT_EQ(LogCapture::get().take_text(), "I [ds]str: \xC3\xA4 not Ascii\n");
}

}  // namespace
