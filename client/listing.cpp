#include "client/listing.h"

#include <libxml/parser.h>
#include <libxml/xmlreader.h>

#include <charconv>
#include <limits>
#include <memory>
#include <optional>

namespace transmit {
namespace {

Error bad_document(const std::string& why) {
    return {ErrorKind::bad_answer, 0, "the server's list can't be read: " + why};
}

// The library's tables, which several threads must not fill at once.
void prepare_library() {
    static const bool prepared = (xmlInitParser(), true);
    static_cast<void>(prepared);
}

// A document's elements below its root, one after the other, so that memory doesn't grow with the
// document. Nothing outside of it is loaded.
class Elements {
  public:
    explicit Elements(std::string_view document) : reader_(open(document), &xmlFreeTextReader) {}

    // On to the next element: 1, 0 at the document's end, -1 if it is ill-formed or defines
    // anything of its own.
    int next() {
        if (!reader_) {
            return -1;
        }
        int outcome = xmlTextReaderRead(reader_.get());
        while (outcome == 1 && !at_child()) {
            outcome = node_type() == XML_READER_TYPE_DOCUMENT_TYPE
                          ? -1
                          : xmlTextReaderRead(reader_.get());
        }
        return outcome;
    }

    std::string_view name() const { return text(xmlTextReaderConstLocalName(reader_.get())); }

    std::optional<std::string> attribute(const char* name) const {
        const std::unique_ptr<xmlChar, void (*)(void*)> value(
            xmlTextReaderGetAttribute(reader_.get(), reinterpret_cast<const xmlChar*>(name)),
            xmlFree);
        if (!value) {
            return std::nullopt;
        }
        return std::string(text(value.get()));
    }

  private:
    static xmlTextReaderPtr open(std::string_view document) {
        if (document.size() > std::numeric_limits<int>::max()) {
            return nullptr;
        }
        prepare_library();
        return xmlReaderForMemory(document.data(), static_cast<int>(document.size()), nullptr,
                                  nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    }

    static std::string_view text(const xmlChar* value) {
        return reinterpret_cast<const char*>(value);
    }

    int node_type() const { return xmlTextReaderNodeType(reader_.get()); }

    bool at_child() const {
        return node_type() == XML_READER_TYPE_ELEMENT && xmlTextReaderDepth(reader_.get()) == 1;
    }

    std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> reader_;
};

std::optional<std::int64_t> number(const std::optional<std::string>& text) {
    std::int64_t value = 0;
    if (!text || text->empty()) {
        return std::nullopt;
    }
    const char* const end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

Result<Entry> folder(const Elements& elements) {
    auto name = elements.attribute("name");
    if (!name) {
        return bad_document("a folder has no name");
    }
    return Entry{true, *std::move(name), 0, 0};
}

Result<Entry> file(const Elements& elements) {
    auto name = elements.attribute("name");
    const auto size = number(elements.attribute("size"));
    const auto time = number(elements.attribute("time"));
    if (!name || !size || !time) {
        return bad_document("a file lacks its name, size or time");
    }
    return Entry{false, *std::move(name), *size, *time};
}

Result<Storage> storage(const Elements& elements) {
    auto id = elements.attribute("id");
    auto name = elements.attribute("name");
    if (!id || !name) {
        return bad_document("a storage lacks its id or name");
    }
    return Storage{*std::move(id), *std::move(name)};
}

// One value for each element that `read` knows: it gives no result for the others.
template <typename Value, typename Read>
Result<std::vector<Value>> parse(std::string_view document, Read read) {
    Elements elements(document);
    std::vector<Value> values;
    int outcome = elements.next();
    for (; outcome == 1; outcome = elements.next()) {
        std::optional<Result<Value>> value = read(elements);
        if (value && !*value) {
            return value->error();
        }
        if (value) {
            values.push_back(**std::move(value));
        }
    }
    if (outcome < 0) {
        return bad_document("it is no well-formed XML");
    }
    return values;
}

}  // namespace

Result<std::vector<Entry>> parse_listing(std::string_view document) {
    return parse<Entry>(document, [](const Elements& elements) -> std::optional<Result<Entry>> {
        if (elements.name() == "folder") {
            return folder(elements);
        }
        if (elements.name() == "file") {
            return file(elements);
        }
        return std::nullopt;
    });
}

Result<std::vector<Storage>> parse_storages(std::string_view document) {
    return parse<Storage>(document, [](const Elements& elements) -> std::optional<Result<Storage>> {
        if (elements.name() == "storage") {
            return storage(elements);
        }
        return std::nullopt;
    });
}

}  // namespace transmit
