#pragma once

#include <libxml/xmlwriter.h>

#include <memory>
#include <string>
#include <string_view>

#include "kestin_base/uncopy.h"

namespace Kestin::Base::detail {

// The text as UTF-8 that XML can hold: each byte that is no UTF-8 and each character that XML 1.0
// excludes (section 2.2) is replaced by U+FFFD.
std::string repaired_text(std::string_view text);

// A document of two levels in the making, kept as text.
class XmlWriter : private Uncopy {
  public:
    XmlWriter();
    ~XmlWriter();

    bool add_element(const char* name, const char* value);
    bool add_child_element(const char* name, const char* value);
    bool add_child_attribute(const char* name, const std::string& value);

    // Closes what is open. Throws std::bad_alloc if the document is broken for lack of memory.
    std::string get_document();

  private:
    // What has been added so far.
    enum class State { nothing, top, child, ended };

    bool start_element(const char* name);
    bool close_child();

    xmlBuffer* text_;
    xmlTextWriter* writer_;
    State state_ = State::nothing;
    std::string child_text_;  // written when the child's attributes are complete
};

}  // namespace Kestin::Base::detail
