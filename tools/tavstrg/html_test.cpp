// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/html.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

#define REPLACED "\xEF\xBF\xBD"

TEST(EscapedHtml, MarkupBecomesReferences)
{
    EXPECT_EQ(escapedHtml("<script>\"a\" & 'b'</script>"),
              "&lt;script&gt;&quot;a&quot; &amp; &#39;b&#39;&lt;/script&gt;");
    EXPECT_EQ(escapedHtml("]]>"), "]]&gt;");
    EXPECT_EQ(escapedHtml("&amp;"), "&amp;amp;");
}

TEST(EscapedHtml, CharactersBeyondAsciiStay)
{
    EXPECT_EQ(escapedHtml("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x92\xBE"), "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x92\xBE");
}

TEST(EscapedHtml, ControlsAndDirectionsAreReplaced)
{
    EXPECT_EQ(escapedHtml(std::string_view("a\0b\x1b[31m\x7f\n", 10)),
              "a" REPLACED "b" REPLACED "[31m" REPLACED REPLACED);
    EXPECT_EQ(escapedHtml("\xC2\x80"), REPLACED) << "C1";
    EXPECT_EQ(escapedHtml("\xE2\x80\xAE"), REPLACED) << "U+202E turns the text around";
    EXPECT_EQ(escapedHtml("\xE2\x81\xA6"), REPLACED) << "U+2066";
    EXPECT_EQ(escapedHtml("\xEF\xBF\xBE\xEF\xBF\xBF"), REPLACED REPLACED) << "no characters";
}

TEST(EscapedHtml, EachByteThatIsNoUtf8IsReplaced)
{
    EXPECT_EQ(escapedHtml("\xff<"), REPLACED "&lt;");
    EXPECT_EQ(escapedHtml("\xC3<"), REPLACED "&lt;") << "markup after a character that breaks off";
    EXPECT_EQ(escapedHtml("\xC0\xBC"), REPLACED REPLACED) << "an overlong <";
    EXPECT_EQ(escapedHtml("\xE0\x80\xBC"), REPLACED REPLACED REPLACED);
    EXPECT_EQ(escapedHtml("\xED\xA0\x80"), REPLACED REPLACED REPLACED) << "a surrogate";
    EXPECT_EQ(escapedHtml("\xF4\x90\x80\x80"), REPLACED REPLACED REPLACED REPLACED) << "above U+10FFFF";
    EXPECT_EQ(escapedHtml("\xE2\x82"), REPLACED REPLACED) << "breaks off at the end";
}

} // namespace
} // namespace tool
