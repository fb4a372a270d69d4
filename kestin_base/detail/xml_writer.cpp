#include "kestin_base/detail/xml_writer.h"

#include <libxml/parserInternals.h>

#include <new>

#include <algorithm>

namespace Kestin::Base::detail {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD in UTF-8

const xmlChar* xml_text(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

int length_in_utf8(int character) {
    if (character < 0x80) {
        return 1;
    }
    if (character < 0x800) {
        return 2;
    }
    return character < 0x10000 ? 3 : 4;
}

// The library takes such a byte for the first of a character of two bytes.
bool is_continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// Takes one character off the front of the text: its bytes, or, where there is none that XML can
// hold, the replacement.
std::string_view take_character(std::string_view& text) {
    int length = static_cast<int>(std::min<std::size_t>(text.size(), 4));
    const int character = xmlGetUTF8Char(xml_text(text.data()), &length);
    const bool is_utf8 =
        character >= 0 && length == length_in_utf8(character) && !is_continuation(text.front());
    const std::string_view bytes = text.substr(0, is_utf8 ? static_cast<std::size_t>(length) : 1);
    text.remove_prefix(bytes.size());
    return is_utf8 && IS_CHAR(character) ? bytes : replacement;
}

// Nearly all names: nothing to decode, nothing to repair.
bool is_plain(std::string_view text) {
    return std::ranges::all_of(text, [](char byte) { return byte >= 0x20 && byte < 0x7f; });
}

}  // namespace

std::string repaired_text(std::string_view text) {
    if (is_plain(text)) {
        return std::string(text);
    }
    std::string repaired;
    repaired.reserve(text.size());
    while (!text.empty()) {
        repaired += take_character(text);
    }
    return repaired;
}

XmlWriter::XmlWriter() : text_(xmlBufferCreate()), writer_(xmlNewTextWriterMemory(text_, 0)) {
    // By default the buffer grows by what is added, and so copies a long document again and again.
    xmlBufferSetAllocationScheme(text_, XML_BUFFER_ALLOC_DOUBLEIT);
}

XmlWriter::~XmlWriter() {
    xmlFreeTextWriter(writer_);
    xmlBufferFree(text_);
}

bool XmlWriter::add_element(const char* name, const char* value) {
    if (state_ != State::nothing ||
        xmlTextWriterStartDocument(writer_, nullptr, "UTF-8", nullptr) < 0 ||
        !start_element(name)) {
        return false;
    }
    state_ = State::top;
    return value == nullptr ||
           xmlTextWriterWriteString(writer_, xml_text(repaired_text(value).c_str())) >= 0;
}

bool XmlWriter::add_child_element(const char* name, const char* value) {
    if (state_ != State::top && !close_child()) {
        return false;
    }
    if (!start_element(name)) {
        return false;
    }
    state_ = State::child;
    child_text_ = value == nullptr ? "" : repaired_text(value);
    return true;
}

bool XmlWriter::add_child_attribute(const char* name, const std::string& value) {
    return state_ == State::child &&
           xmlTextWriterWriteAttribute(writer_, xml_text(name),
                                       xml_text(repaired_text(value).c_str())) >= 0;
}

std::string XmlWriter::get_document() {
    if (state_ == State::child) {
        close_child();
    }
    if (state_ == State::top) {
        // An element whose beginning the library had no memory to remember shows only now, when
        // there is one less to close.
        if (xmlTextWriterEndElement(writer_) < 0 || xmlTextWriterEndDocument(writer_) < 0) {
            throw std::bad_alloc();
        }
        state_ = State::ended;
    }
    const auto* text = reinterpret_cast<const char*>(xmlBufferContent(text_));
    return {text, static_cast<std::size_t>(xmlBufferLength(text_))};
}

bool XmlWriter::start_element(const char* name) {
    return xmlTextWriterStartElement(writer_, xml_text(name)) >= 0;
}

bool XmlWriter::close_child() {
    if (state_ != State::child ||
        (!child_text_.empty() &&
         xmlTextWriterWriteString(writer_, xml_text(child_text_.c_str())) < 0) ||
        xmlTextWriterEndElement(writer_) < 0) {
        return false;
    }
    state_ = State::top;
    return true;
}

}  // namespace Kestin::Base::detail
