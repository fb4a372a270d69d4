#include "tests/system/listing.h"

#include <libxml/parser.h>

#include <memory>
#include <stdexcept>

namespace listing {

namespace {

using Tree = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

std::string text_of(const xmlChar* text) {
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

Tree read_strictly(std::string_view document) {
    Tree tree(xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr, nullptr,
                            XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING |
                                XML_PARSE_NOBLANKS | XML_PARSE_HUGE),
              &xmlFreeDoc);
    if (!tree) {
        throw std::runtime_error("not well-formed: " + std::string(document.substr(0, 2000)));
    }
    return tree;
}

Element element_of(const xmlNode* node) {
    if (node->type != XML_ELEMENT_NODE || node->children != nullptr) {
        throw std::runtime_error("more than attributes in <" + text_of(node->name) + ">");
    }
    Element element{text_of(node->name), {}};
    for (const xmlAttr* attribute = node->properties; attribute != nullptr;
         attribute = attribute->next) {
        element.attributes.emplace_back(
            text_of(attribute->name),
            attribute->children == nullptr ? "" : text_of(attribute->children->content));
    }
    return element;
}

}  // namespace

std::vector<Element> parse(std::string_view document) {
    const Tree tree = read_strictly(document);
    const xmlNode* root = xmlDocGetRootElement(tree.get());
    if (text_of(root->name) != "root" || root->properties != nullptr) {
        throw std::runtime_error("the top element is <" + text_of(root->name) + ">");
    }
    std::vector<Element> elements;
    for (const xmlNode* child = root->children; child != nullptr; child = child->next) {
        elements.push_back(element_of(child));
    }
    return elements;
}

std::map<std::string, Element> by_name(std::string_view document) {
    std::map<std::string, Element> elements;
    for (Element& element : parse(document)) {
        for (const auto& [attribute, value] : element.attributes) {
            if (attribute == "name" && !elements.emplace(value, element).second) {
                throw std::runtime_error("twice in one listing: " + value);
            }
        }
    }
    return elements;
}

Element folder(const std::string& name) {
    return {"folder", {{"name", name}}};
}

Element file(const std::string& name, std::int64_t size, std::int64_t time) {
    return {"file",
            {{"name", name}, {"size", std::to_string(size)}, {"time", std::to_string(time)}}};
}

}  // namespace listing
