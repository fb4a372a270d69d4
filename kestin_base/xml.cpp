#include "kestin_base/xml.h"

#include <libxml/parser.h>

#include <array>
#include <cerrno>

#include "kestin_base/detail/xml_reader.h"
#include "kestin_base/detail/xml_writer.h"
#include "kestin_base/file.h"
#include "kestin_base/strings.h"

namespace Kestin::Base {
namespace {

constexpr std::size_t max_file_size = std::size_t{64} << 20U;

// Reads a file by our own means: the library takes a file name for an address, with schemes,
// escapes and "-" for the standard input. On false errno says why.
bool read_file(const char* path, std::string& text) {
    File file;
    std::array<char, 65536> block;
    std::uint64_t got = 0;
    if (!file.open(path, false, false)) {
        return false;
    }
    while (!file.is_eof()) {
        if (!file.read(block.data(), block.size(), got)) {
            return false;
        }
        if (text.size() + got > max_file_size) {
            errno = EFBIG;
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
    if (!read_file(path, text)) {
        failure_ = {0, kestin_error_text(errno)};
        reader_.reset();
        return false;
    }
    return parse(text);
}

bool Xml::set_document(const char* text) {
    return parse(text);
}

bool Xml::parse(const std::string& text) {
    failure_ = {};
    reader_ = detail::XmlReader::parse(text, failure_);
    return reader_ != nullptr;
}

int Xml::line_of(const char* name) const {
    return reader_ == nullptr ? 0 : reader_->line_of(name);
}

int Xml::sub_document_line() const {
    return reader_ == nullptr ? 0 : reader_->sub_document_line();
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
