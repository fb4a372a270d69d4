#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "kestin_base/uncopy.h"
#include "kestin_base/xml.h"

namespace Kestin::Base::detail {

// A parsed document and the cursor in it.
class XmlReader : private Uncopy {
  public:
    // Returns null if the text is not well-formed, and why in `failure`.
    static std::unique_ptr<XmlReader> parse(std::string_view text, Xml::Failure& failure);

    bool into_element(const char* name);
    bool outof_element();
    bool get_element(const char* name, std::string& value) const;
    bool get_sub_document(std::string& document);
    int line_of(const char* name) const;
    int sub_document_line() const { return sub_document_line_; }

  private:
    struct Release {
        void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
    };

    explicit XmlReader(xmlDoc* document) : document_(document) {}

    void move_to(xmlNode* element);

    std::unique_ptr<xmlDoc, Release> document_;
    xmlNode* element_ = nullptr;  // the cursor's; null before the top element
    xmlNode* next_child_ = nullptr;
    int sub_document_line_ = 0;
};

}  // namespace Kestin::Base::detail
