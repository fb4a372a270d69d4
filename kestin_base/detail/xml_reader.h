#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "kestin_base/uncopy.h"

namespace Kestin::Base::detail {

// A parsed document and the cursor in it.
class XmlReader : private Uncopy {
  public:
    // Null if the text is not well-formed.
    static std::unique_ptr<XmlReader> parse(std::string_view text);

    bool into_element(const char* name);
    bool outof_element();
    bool get_element(const char* name, std::string& value) const;
    bool get_sub_document(std::string& document);

  private:
    struct Release {
        void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
    };

    explicit XmlReader(xmlDoc* document) : document_(document) {}

    void move_to(xmlNode* element);

    std::unique_ptr<xmlDoc, Release> document_;
    xmlNode* element_ = nullptr;  // the cursor's; null before the top element
    xmlNode* next_child_ = nullptr;
};

}  // namespace Kestin::Base::detail
