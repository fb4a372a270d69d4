#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace transmit::detail {

// Reads the elements below the root of an XML document (https://www.w3.org/TR/xml/), one after the
// other, in time and memory that grow with the document's length and no faster: it is sent by a
// server that isn't trusted. The language is the part of XML that servers send: UTF-8, elements and
// attributes, character references and the five named entities, comments and processing
// instructions. A document type is refused, as is what is nested more deeply than `most_levels` or
// has more attributes than `most_attributes`.
class ElementReader {
  public:
    static constexpr std::size_t most_levels = 16;
    static constexpr std::size_t most_attributes = 16;

    // The document must outlive the reader.
    explicit ElementReader(std::string_view document);

    enum class Step { element, end, ill_formed };
    // On to the next element that is a child of the root.
    Step next();

    // Of the current element.
    std::string_view name() const { return name_; }
    std::optional<std::string> attribute(std::string_view name) const;

  private:
    struct Attribute {
        std::string_view name;
        std::string_view value;  // as it is written
    };

    bool read_markup();
    bool read_start_tag();
    bool read_end_tag();
    bool read_attribute();
    bool skip_past(std::string_view end);
    bool skip_text();
    void skip_space();
    std::string_view take_name();
    bool take(std::string_view text);

    std::string_view rest_;
    std::vector<std::string_view> open_;  // names of the elements around this place
    std::string_view name_;
    std::vector<Attribute> attributes_;
    bool at_child_ = false;
    bool has_root_ = false;
};

}  // namespace transmit::detail
