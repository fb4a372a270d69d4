#include "kestin_base/xml.h"

#include <libxml/parser.h>

#include <array>

#include "kestin_base/detail/xml_reader.h"
#include "kestin_base/detail/xml_writer.h"
#include "kestin_base/file.h"

namespace Kestin::Base {
namespace {

constexpr std::size_t max_file_size = std::size_t{64} << 20U;

// The bytes of a file, read by our own means: the library takes a file name for an address, with
// schemes, escapes and "-" for the standard input.
bool read_file(const char* path, std::string& text) {
    File file;
    std::array<char, 65536> block;
    std::uint64_t got = 0;
    if (!file.open(path, false, false)) {
        return false;
    }
    while (!file.is_eof()) {
        if (!file.read(block.data(), block.size(), got) || text.size() + got > max_file_size) {
            return false;
        }
        text.append(block.data(), got);
    }
    return true;
}

// The library's tables, which several threads must not fill at once.
void prepare_library() {
    static const bool prepared = (xmlInitParser(), true);
    static_cast<void>(prepared);
}

}  // namespace

Xml::Xml() {
    prepare_library();
}
Xml::~Xml() = default;

bool Xml::load(const char* path) {
    std::string text;
    reader_ = read_file(path, text) ? detail::XmlReader::parse(text) : nullptr;
    return reader_ != nullptr;
}

bool Xml::set_document(const char* text) {
    reader_ = detail::XmlReader::parse(text);
    return reader_ != nullptr;
}

bool Xml::into_element(const char* name) {
    return reader_ != nullptr && reader_->into_element(name);
}

bool Xml::outof_element() {
    return reader_ != nullptr && reader_->outof_element();
}

bool Xml::get_element(const char* name, std::string& value) {
    return reader_ != nullptr && reader_->get_element(name, value);
}

bool Xml::get_sub_document(std::string& document) {
    return reader_ != nullptr && reader_->get_sub_document(document);
}

bool Xml::add_element(const char* name, const char* value) {
    if (writer_ == nullptr) {
        writer_ = std::make_unique<detail::XmlWriter>();
    }
    return writer_->add_element(name, value);
}

bool Xml::add_child_element(const char* name, const char* value) {
    return writer_ != nullptr && writer_->add_child_element(name, value);
}

bool Xml::add_child_attribute(const char* name, const std::string& value) {
    return writer_ != nullptr && writer_->add_child_attribute(name, value);
}

std::string Xml::get_document() {
    return writer_ == nullptr ? "" : writer_->get_document();
}

}  // namespace Kestin::Base
