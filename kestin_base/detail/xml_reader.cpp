#include "kestin_base/detail/xml_reader.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <cerrno>
#include <limits>

#include "kestin_base/strings.h"

namespace Kestin::Base::detail {
namespace {

// Entities stay unexpanded, nothing is fetched, and faults are told by the result alone.
constexpr int strict = XML_PARSE_NONET | XML_PARSE_NOCDATA | XML_PARSE_NOERROR |
                       XML_PARSE_NOWARNING | XML_PARSE_BIG_LINES;

struct ReleaseParser {
    void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};
using Parser = std::unique_ptr<xmlParserCtxt, ReleaseParser>;

// The library bounds the expansion of general entities, not of parameter entities.
void declare_entity(void* context, const xmlChar* name, int type, const xmlChar* public_id,
                    const xmlChar* system_id, xmlChar* content) {
    auto* parser = static_cast<xmlParserCtxt*>(context);
    if (type != XML_INTERNAL_PARAMETER_ENTITY && type != XML_EXTERNAL_PARAMETER_ENTITY) {
        xmlSAX2EntityDecl(context, name, type, public_id, system_id, content);
        return;
    }
    auto& failure = *static_cast<Xml::Failure*>(parser->_private);
    failure = {xmlSAX2GetLineNumber(parser), "parameter entities are not allowed"};
    xmlStopParser(parser);
    parser->wellFormed = 0;
}

Xml::Failure last_failure(const xmlParserCtxt& parser) {
    const xmlError& error = parser.lastError;
    if (error.message == nullptr) {
        return {1, "the document is empty"};
    }
    std::string reason = error.message;
    kestin_string_trim(reason, blank_characters);
    return {error.line, reason};
}

// Some faults, of encodings for one, are told to the process rather than to the parser, and would
// go to the standard error. The setting is the calling thread's.
void keep_library_silent() {
    xmlSetStructuredErrorFunc(nullptr, [](void* /*context*/, auto* /*error*/) {});
}

const char* plain_text(const xmlChar* text) {
    return reinterpret_cast<const char*>(text);
}

bool is_named(const xmlNode* node, std::string_view name) {
    return node->type == XML_ELEMENT_NODE && plain_text(node->name) == name;
}

xmlNode* find_child(const xmlNode* element, const char* name) {
    xmlNode* child = element == nullptr ? nullptr : element->children;
    while (child != nullptr && !is_named(child, name)) {
        child = child->next;
    }
    return child;
}

std::string text_of(const xmlNode* element) {
    std::string text;
    for (const xmlNode* part = element->children; part != nullptr; part = part->next) {
        if (part->type == XML_TEXT_NODE && part->content != nullptr) {
            text += plain_text(part->content);
        }
    }
    kestin_string_trim(text, blank_characters);
    return text;
}

}  // namespace

std::unique_ptr<XmlReader> XmlReader::parse(std::string_view text, Xml::Failure& failure) {
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        failure = {0, kestin_error_text(EFBIG)};
        return nullptr;
    }
    keep_library_silent();
    const Parser parser(xmlNewParserCtxt());
    if (parser == nullptr) {
        failure = {0, kestin_error_text(ENOMEM)};
        return nullptr;
    }
    parser->_private = &failure;
    parser->sax->entityDecl = declare_entity;
    xmlDoc* document = xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()),
                                         nullptr, nullptr, strict);
    if (document == nullptr && failure.reason.empty()) {
        failure = last_failure(*parser);
    }
    return std::unique_ptr<XmlReader>(document == nullptr ? nullptr : new XmlReader(document));
}

int XmlReader::line_of(const char* name) const {
    const xmlNode* child = find_child(element_, name);
    const xmlNode* node = child != nullptr ? child : element_;
    return node == nullptr ? 1 : static_cast<int>(xmlGetLineNo(node));
}

bool XmlReader::into_element(const char* name) {
    xmlNode* top = xmlDocGetRootElement(document_.get());
    if (element_ == nullptr && is_named(top, name)) {
        move_to(top);
        return true;
    }
    xmlNode* child = find_child(element_, name);
    if (child != nullptr) {
        move_to(child);
    }
    return child != nullptr;
}

bool XmlReader::outof_element() {
    if (element_ == nullptr) {
        return false;
    }
    xmlNode* above = element_->parent;
    move_to(above->type == XML_ELEMENT_NODE ? above : nullptr);
    return true;
}

bool XmlReader::get_element(const char* name, std::string& value) const {
    const xmlNode* child = find_child(element_, name);
    if (child != nullptr) {
        value = text_of(child);
    }
    return child != nullptr;
}

bool XmlReader::get_sub_document(std::string& document) {
    while (next_child_ != nullptr && next_child_->type != XML_ELEMENT_NODE) {
        next_child_ = next_child_->next;
    }
    if (next_child_ == nullptr) {
        return false;
    }
    sub_document_line_ = static_cast<int>(xmlGetLineNo(next_child_));
    xmlBuffer* text = xmlBufferCreate();
    const bool written = xmlNodeDump(text, document_.get(), next_child_, 0, 0) >= 0;
    if (written) {
        document = plain_text(xmlBufferContent(text));
    }
    xmlBufferFree(text);
    next_child_ = next_child_->next;
    return written;
}

void XmlReader::move_to(xmlNode* element) {
    element_ = element;
    next_child_ = element == nullptr ? nullptr : element->children;
}

}  // namespace Kestin::Base::detail
