#include "client/listing.h"

#include <charconv>
#include <optional>

#include "client/detail/element_reader.h"

namespace transmit {
namespace {

using detail::ElementReader;

Error bad_document(const std::string& why) {
    return {ErrorKind::bad_answer, 0, "the server's list can't be read: " + why};
}

std::optional<std::int64_t> number(const std::optional<std::string>& text) {
    std::int64_t value = 0;
    if (!text || text->empty()) {
        return std::nullopt;
    }
    const char* const end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

Result<Entry> folder(const ElementReader& element) {
    auto name = element.attribute("name");
    if (!name) {
        return bad_document("a folder has no name");
    }
    return Entry{true, *std::move(name), 0, 0};
}

Result<Entry> file(const ElementReader& element) {
    auto name = element.attribute("name");
    const auto size = number(element.attribute("size"));
    const auto time = number(element.attribute("time"));
    if (!name || !size || !time) {
        return bad_document("a file lacks its name, size or time");
    }
    return Entry{false, *std::move(name), *size, *time};
}

Result<Storage> storage(const ElementReader& element) {
    auto id = element.attribute("id");
    auto name = element.attribute("name");
    if (!id || !name) {
        return bad_document("a storage lacks its id or name");
    }
    return Storage{*std::move(id), *std::move(name)};
}

// One value for each element that `read` knows: it gives no result for the others.
template <typename Value, typename Read>
Result<std::vector<Value>> parse(std::string_view document, Read read) {
    using Step = ElementReader::Step;
    ElementReader element(document);
    std::vector<Value> values;
    Step step = element.next();
    for (; step == Step::element; step = element.next()) {
        std::optional<Result<Value>> value = read(element);
        if (value && !*value) {
            return value->error();
        }
        if (value) {
            values.push_back(**std::move(value));
        }
    }
    if (step == Step::ill_formed) {
        return bad_document("it is no well-formed XML");
    }
    return values;
}

}  // namespace

Result<std::vector<Entry>> parse_listing(std::string_view document) {
    return parse<Entry>(document, [](const ElementReader& element) -> std::optional<Result<Entry>> {
        if (element.name() == "folder") {
            return folder(element);
        }
        if (element.name() == "file") {
            return file(element);
        }
        return std::nullopt;
    });
}

Result<std::vector<Storage>> parse_storages(std::string_view document) {
    return parse<Storage>(document,
                          [](const ElementReader& element) -> std::optional<Result<Storage>> {
                              if (element.name() == "storage") {
                                  return storage(element);
                              }
                              return std::nullopt;
                          });
}

}  // namespace transmit
