#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// A document of the server as a strict XML reader sees it: one root, and its children in order.
namespace listing {

struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;

    bool operator==(const Element&) const = default;
};

// The children of the top element, which has to be `root`. Throws if the text isn't well-formed
// XML or holds anything else.
std::vector<Element> parse(std::string_view document);

// The same for tests that don't care about the order of names: an element by its attribute "name".
std::map<std::string, Element> by_name(std::string_view document);

Element folder(const std::string& name);
Element file(const std::string& name, std::int64_t size, std::int64_t time);

}  // namespace listing
