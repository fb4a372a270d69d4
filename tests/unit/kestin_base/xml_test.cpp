#include "kestin_base/xml.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "tests/unit/kestin_base/temporary_folder.h"

using Kestin::Base::Xml;

namespace {

// The text of the child "a" of a document's top element "t", or a word for what failed.
std::string read_a(const std::string& document) {
    Xml xml;
    std::string value = "untouched";
    if (!xml.set_document(document.c_str())) {
        return "refused";
    }
    if (!xml.into_element("t")) {
        return "no top";
    }
    return xml.get_element("a", value) ? value : "none, " + value;
}

// A document of one child with one attribute, and without its declaration.
std::string written(const std::string& value) {
    Xml xml;
    EXPECT_TRUE(xml.add_element("root", nullptr));
    EXPECT_TRUE(xml.add_child_element("file", nullptr));
    EXPECT_TRUE(xml.add_child_attribute("name", value));
    const std::string document = xml.get_document();
    EXPECT_TRUE(Xml().set_document(document.c_str())) << document;
    return document.substr(document.find("<root>"));
}

std::string listing_of(const std::string& name) {
    return "<root><file name=\"" + name + "\"/></root>\n";
}

}  // namespace

TEST(XmlReadTest, TextOfAnElementIsDecodedAndTrimmed) {
    const std::array<std::array<const char*, 2>, 14> table{{
        {"<t><a>x</a></t>", "x"},
        {"<t><a> \t\r\n two words \n</a></t>", "two words"},
        {"<t><a/></t>", ""},
        {"<t><a></a></t>", ""},
        {"<t><b>y</b></t>", "none, untouched"},
        {"<t><c><a>deeper</a></c></t>", "none, untouched"},
        {"<t><a>1</a><a>2</a></t>", "1"},
        {"<t><a>&lt;&amp;&#x41;&gt;</a></t>", "<&A>"},
        {"<t><a><![CDATA[<x>&amp;]]></a></t>", "<x>&amp;"},
        {"<t><!-- <a>no</a> --><a>a<!-- c -->b</a></t>", "ab"},
        {"\xEF\xBB\xBF<t><a>\xC3\xA9</a></t>", "\xC3\xA9"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><t><a>\xE9</a></t>", "\xC3\xA9"},
        {"<t xmlns='urn:n'><a>ns</a></t>", "ns"},
        {"<u><a>x</a></u>", "no top"},
    }};
    for (const auto& [document, expected] : table) {
        EXPECT_EQ(read_a(document), expected) << document;
    }
}

TEST(XmlReadTest, WhatIsNotWellFormedIsRefusedSilently) {
    testing::internal::CaptureStderr();
    for (const char* document : {
             "",
             " ",
             "text",
             "<t>",
             "<t></u>",
             "<t><a></t></a>",
             "<t a=1/>",
             "<t a='1' a='2'/>",
             "<t>&nothing;</t>",
             "<t>&#0;</t>",
             "<t>\x01</t>",
             "<t>\xE9</t>",
             "<t/><t/>",
             "<t/>x",
             "<t>a<b</t>",
             "<t>]]></t>",
             "<t a='<'/>",
             "<1t/>",
             "<t><!-- -- --></t>",
             "<?xml version='1.0' encoding='none-such'?><t/>",
         }) {
        EXPECT_EQ(read_a(document), "refused") << document;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(XmlReadTest, EntitiesOfADocumentReachNothing) {
    const TemporaryFolder folder;
    const std::string secret = folder.with_file("secret", "secret");
    EXPECT_EQ(read_a("<!DOCTYPE t [<!ENTITY e SYSTEM 'file://" + secret + "'>]><t><a>x&e;</a></t>"),
              "x");
    EXPECT_EQ(read_a("<!DOCTYPE t [<!ENTITY e 'y'>]><t><a>x&e;</a></t>"), "x");
}

// Each of these stands for more bytes than any memory holds. Run within the memory that the
// smallest machine has: what expands one of them does not come back.
TEST(XmlReadTest, ABombOfEntitiesCostsNothing) {
    const auto nested = [](const std::string& mark, const std::string& reference) {
        std::string entities = "<!DOCTYPE t [<!ENTITY " + mark + "e0 'ha'>";
        for (int level = 1; level < 30; ++level) {
            std::string value;
            for (int count = 0; count < 10; ++count) {
                value += reference + "e" + std::to_string(level - 1) + ";";
            }
            entities += "<!ENTITY " + mark + "e" + std::to_string(level) + " '" + value + "'>";
        }
        return entities;
    };
    const std::string general = nested("", "&");
    const std::string parameter = nested("% ", "&#37;");
    for (const std::string& bomb :
         {general + "]><t><a>&e29;</a></t>", general + "]><t><a x='&e29;'/></t>",
          general + "<!ATTLIST a x CDATA '&e29;'>]><t><a/></t>",
          parameter + "%e29;]><t><a/></t>"}) {
        EXPECT_EQ(read_a(bomb), "refused");
    }
    Xml xml;
    EXPECT_FALSE(xml.set_document((parameter + "%e29;]><t/>").c_str()));
    EXPECT_EQ(xml.failure().reason, "parameter entities are not allowed");
}

TEST(XmlReadTest, AFailureNamesItsLineAndItsReason) {
    Xml xml;
    EXPECT_FALSE(xml.set_document("<t>\n<a>\n</b>\n</t>"));
    EXPECT_EQ(xml.failure().line, 3);
    EXPECT_EQ(xml.failure().reason, "Opening and ending tag mismatch: a line 2 and b");
    EXPECT_FALSE(xml.load("/nonexistent/config.xml"));
    EXPECT_EQ(xml.failure().line, 0);
    EXPECT_EQ(xml.failure().reason, "No such file or directory");
    EXPECT_TRUE(xml.set_document("<t/>"));
    EXPECT_EQ(xml.failure().reason, "");
}

TEST(XmlReadTest, TheCursorGoesInAndOut) {
    Xml xml;
    std::string value;
    EXPECT_FALSE(xml.into_element("t"));
    ASSERT_TRUE(xml.set_document("<t><a>1</a><b><a>2</a></b></t>"));
    EXPECT_FALSE(xml.get_element("a", value)) << "the cursor stands before the top element";
    EXPECT_FALSE(xml.outof_element());
    ASSERT_TRUE(xml.into_element("t"));
    EXPECT_FALSE(xml.into_element("t"));
    ASSERT_TRUE(xml.into_element("b"));
    EXPECT_TRUE(xml.get_element("a", value));
    EXPECT_EQ(value, "2");
    ASSERT_TRUE(xml.outof_element());
    EXPECT_TRUE(xml.get_element("a", value));
    EXPECT_EQ(value, "1");
    EXPECT_TRUE(xml.outof_element());
    EXPECT_FALSE(xml.outof_element());
    EXPECT_TRUE(xml.into_element("t"));
}

TEST(XmlReadTest, EachChildElementIsADocumentOfItsOwn) {
    const TemporaryFolder folder;
    const std::string path = folder.with_file(
        "a b%20?.xml",
        "<?xml version='1.0' encoding='ISO-8859-1'?>\n<s> <!-- c --> <item><a>\xE9&lt;</a></item>\n"
        " text <item><a>2</a></item><other/></s>\n");
    Xml xml;
    std::vector<std::string> texts;
    ASSERT_TRUE(xml.load(path.c_str()));
    ASSERT_TRUE(xml.into_element("s"));
    for (std::string text; xml.get_sub_document(text);) {
        texts.push_back(text);
    }
    ASSERT_EQ(texts.size(), 3U);
    Xml item;
    std::string value;
    ASSERT_TRUE(item.set_document(texts[0].c_str()));
    ASSERT_TRUE(item.into_element("item"));
    EXPECT_TRUE(item.get_element("a", value));
    EXPECT_EQ(value, "\xC3\xA9<");
    ASSERT_TRUE(item.set_document(texts[2].c_str()));
    EXPECT_TRUE(item.into_element("other"));
    EXPECT_TRUE(xml.outof_element());
}

TEST(XmlReadTest, OnlyRegularFilesAreLoaded) {
    const TemporaryFolder folder;
    for (const std::string& path : {folder.path(), folder / "none", std::string(), std::string("-"),
                                    std::string("/dev/zero"), std::string("http://127.0.0.1/x")}) {
        EXPECT_FALSE(Xml().load(path.c_str())) << path;
    }
}

TEST(XmlWriteTest, ElementsAndAttributesAreEscaped) {
    Xml xml;
    ASSERT_TRUE(xml.add_element("root", nullptr));
    ASSERT_TRUE(xml.add_child_element("folder", nullptr));
    ASSERT_TRUE(xml.add_child_attribute("name", "a<b>&\"'\n\t"));
    ASSERT_TRUE(xml.add_child_element("file", "text & more"));
    ASSERT_TRUE(xml.add_child_attribute("name", "caf\xC3\xA9 \xF0\x9F\x98\x80"));
    ASSERT_TRUE(xml.add_child_attribute("size", "5"));
    const std::string document = xml.get_document();
    EXPECT_EQ(
        document,
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<root><folder name=\"a&lt;b&gt;&amp;&quot;'&#10;&#9;\"/>"
        "<file name=\"caf\xC3\xA9 \xF0\x9F\x98\x80\" size=\"5\">text &amp; more</file></root>\n");
    EXPECT_EQ(xml.get_document(), document);
}

TEST(XmlWriteTest, OrderOfTheAdditionsIsHeld) {
    Xml xml;
    EXPECT_EQ(xml.get_document(), "");
    EXPECT_FALSE(xml.add_child_element("file", nullptr));
    EXPECT_FALSE(xml.add_child_attribute("name", "x"));
    ASSERT_TRUE(xml.add_element("root", nullptr));
    EXPECT_FALSE(xml.add_element("root", nullptr));
    EXPECT_FALSE(xml.add_child_attribute("name", "x"));
    EXPECT_TRUE(xml.get_document().ends_with("<root/>\n"));
    EXPECT_FALSE(xml.add_child_element("file", nullptr)) << "the writing has ended";
}

TEST(XmlWriteTest, WhatXmlCanNotHoldIsReplaced) {
    const std::string bad = "\xEF\xBF\xBD";
    const std::vector<std::array<std::string, 2>> table{
        {"a\xFFz", "a" + bad + "z"},
        {"\xC3", bad},
        {"\xC3z", bad + "z"},
        {"\x93\x90z", bad + bad + "z"},  // the middles of characters
        {"\xE2\x82", bad + bad},
        {"\xC1\x81", bad + bad},            // overlong
        {"\xE0\x81\x81", bad + bad + bad},  // overlong
        {"\xED\xA0\x80", bad},              // a surrogate
        {"\xEF\xBF\xBE", bad},              // U+FFFE
        {"\xF4\x90\x80\x80", bad},          // beyond U+10FFFF
        {std::string("a\0z", 3), "a" + bad + "z"},
        {"\x01\x1F\x7F", bad + bad + "\x7F"},
        {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
    };
    for (const auto& [value, shown] : table) {
        EXPECT_EQ(written(value), listing_of(shown));
    }
}
