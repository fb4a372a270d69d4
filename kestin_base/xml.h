#pragma once

#include <memory>
#include <string>

#include "kestin_base/uncopy.h"

namespace Kestin::Base {

namespace detail {
class XmlReader;
class XmlWriter;
}  // namespace detail

// An XML document with a cursor, used either for reading or for writing. One owner at a time.
//
// Reading is strict: what isn't well-formed is refused, entities beyond the built-in ones are not
// expanded and nothing is fetched. A declaration of a parameter entity is refused: nested ones cost
// hours to expand. Comments, CDATA and encodings are as the XML 1.0 standard has
// them; all text comes out as UTF-8, with white space at both ends removed.
//
// Writing always gives well-formed UTF-8, whatever bytes a value holds: a byte that is no UTF-8,
// or a character that XML can't hold, is shown as U+FFFD.
class Xml : private Uncopy {
  public:
    Xml();
    ~Xml();

    // Replaces the document; the cursor stands before its top element. After a false `failure` says
    // why the document can't be read.
    bool load(const char* path);
    bool set_document(const char* text);

    struct Failure {
        int line = 0;        // of the document; 0 if the file itself can't be read
        std::string reason;  // in words for a person
    };
    const Failure& failure() const { return failure_; }

    // Moves the cursor into the element of that name at the cursor (the top element, or a child
    // of the cursor's element), and back out one level.
    bool into_element(const char* name);
    bool outof_element();

    // The text of the cursor's first child of that name. False if there is none, with `value` as
    // it was; an element without text gives true and an empty text.
    bool get_element(const char* name, std::string& value);

    // The line on which the cursor's first child of that name begins; without one, that of the
    // cursor's element, and 1 before the top element.
    int line_of(const char* name) const;

    // The next child element of the cursor's element as an XML text of its own, in document order;
    // false after the last. A move of the cursor starts over.
    bool get_sub_document(std::string& document);

    // The line on which the last sub-document begins.
    int sub_document_line() const;

    // Adds the top element, a child at its end, and an attribute to the last child added. `value`
    // is the element's text; null for none.
    bool add_element(const char* name, const char* value);
    bool add_child_element(const char* name, const char* value);
    bool add_child_attribute(const char* name, const std::string& value);

    // The document that was written: an XML declaration and the elements, without indentation.
    // Ends the writing. Empty if nothing was added.
    std::string get_document();

  private:
    bool parse(const std::string& text);

    Failure failure_;
    std::unique_ptr<detail::XmlReader> reader_;
    std::unique_ptr<detail::XmlWriter> writer_;
};

}  // namespace Kestin::Base
