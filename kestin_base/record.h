#pragma once

#include <string>
#include <type_traits>

#include "kestin_base/detail/printf_format.h"
#include "kestin_base/uncopy.h"

namespace Kestin::Base {

// The record of finished uploads, `<root>log/record.log`, one line an entry: local date and time
// with milliseconds, "success" or "failure", the text, its control bytes shown as \xHH. Process
// singleton.
class Record : private Uncopy {
  public:
    static Record& instance();

    // Returns false if the file can't be opened. `failure` then says why, in words for a person.
    bool init(const std::string& root);
    const std::string& failure() const { return failure_; }
    void exit();

    // Appends one entry; callable from every thread. Does nothing outside init and exit. An entry
    // for which there is no room on the disk or no memory is lost.
    void append(bool success, const char* format, ...) noexcept;

  private:
    Record();
    ~Record();

    std::string failure_;
};

}  // namespace Kestin::Base

template <typename... Arguments>
void kestin_record(Kestin::Base::Record& record, bool success,
                   Kestin::Base::detail::PrintfFormat<std::type_identity_t<Arguments>...> format,
                   Arguments... arguments) {
    record.append(success, format.text(), arguments...);
}
