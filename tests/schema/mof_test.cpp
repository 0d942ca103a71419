// SPDX-License-Identifier: Apache-2.0
#include "schema/schema_files.h"

#include <gmock/gmock.h>

#include <stdexcept>

using namespace schema_files;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(MofReader, RefusesWhatIsNoSchema)
{
    for (const char *text :
         {"class", "class A", "class A {", "class A {}", "class A { uint16 };", "class A { uint16 B };",
          "class A { uint16 B; }", "class A { uint16 B(string); };", "class A { uint16 B(string C string D); };",
          "[Key class A {};", "[Key(a)] class A {};", "[Key{}] class A {};", "[Key{1,}] class A {};",
          "[Key, Key] class A {};", "#pragma include (\"x.mof\")", "struct A {};",
          "class A { [Description(\"x)] uint16 B; };", "class A {}; ;", "instance of A {};"}) {
        EXPECT_THROW(mof::parse(text), std::runtime_error) << text;
    }
}

TEST(MofReader, ReadsWhatTheSchemaUses)
{
    const auto classes =
        mof::parse("// comment\n/* class X {}; */ [Description(\"one \" \"two\")] class A : B\n"
                   "{ [Key, Description(\"k \\\"q\\\"\"), Values{\"a\" \"b\", \"c\"}, MaxLen(5)] string C;\n"
                   "uint32 D([IN] string E, uint16 F); };");
    ASSERT_EQ(classes.size(), 1U);
    EXPECT_EQ(classes[0].name, "A");
    EXPECT_EQ(classes[0].superclass, "B");
    EXPECT_THAT(classes[0].qualifiers.at("description"), ElementsAre("one two"));
    EXPECT_THAT(declared(classes[0].properties), ElementsAre("string C"));
    const mof::Qualifiers &ofProperty = classes[0].properties[0].qualifiers;
    EXPECT_THAT(ofProperty.at("description"), ElementsAre("k \"q\""));
    EXPECT_THAT(ofProperty.at("key"), IsEmpty());
    EXPECT_THAT(ofProperty.at("values"), ElementsAre("ab", "c"));
    EXPECT_THAT(ofProperty.at("maxlen"), ElementsAre("5"));
    EXPECT_THAT(declared(classes[0].methods), ElementsAre("uint32 D(string E, uint16 F)"));
}

TEST(MofReader, RefusesWhatAreNoInstances)
{
    for (const char *text : {"instance", "instance A {};", "instance of A {}", "instance of A { B };",
                             "instance of A { B = ; };", "instance of A { B = C; };", "instance of A { B = {}; };",
                             "instance of A { B = 1 };", "instance of A { B = 1; B = 2; };", "class A {};"}) {
        EXPECT_THROW(mof::parseInstances(text), std::runtime_error) << text;
    }
}

TEST(MofReader, ReadsWhatTheRegistrationUses)
{
    const auto instances = mof::parseInstances("instance of A { B = \"x\"; C = 4; // four\n D = {1, 2}; E = NULL; };");
    ASSERT_EQ(instances.size(), 1U);
    EXPECT_EQ(instances[0].className, "A");
    EXPECT_THAT(instances[0].properties.at("B"), ElementsAre("x"));
    EXPECT_THAT(instances[0].properties.at("C"), ElementsAre("4"));
    EXPECT_THAT(instances[0].properties.at("D"), ElementsAre("1", "2"));
    EXPECT_THAT(instances[0].properties.at("E"), IsEmpty());
}

} // namespace
