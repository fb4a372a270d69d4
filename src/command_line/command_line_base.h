#pragma once

#include <map>
#include <memory>
#include <string>

struct CommandLineOption {
    std::string name;
    std::string value;
};

// {"error":"<text>"}, with nothing escaped.
std::string error_document(const std::string& text);

// "name=value", "name=" or "name", white space around each aside; further "=" belong to the value.
// False if the name is empty.
bool split_block(const std::string& block, std::string& name, std::string& value);

// A command of the command port: takes options, runs, and holds the document and the status of its
// answer. Used by one request at a time.
class CommandLineBase {
  public:
    virtual ~CommandLineBase() = default;

    // Makes the command as new and gives it back to where it came from.
    virtual void release() = 0;

    bool execute() { return do_execute(); }

    // Takes one option, "name=value" or "name". False, with an error document: the block names no
    // option of this command.
    bool parse_block(const std::string& block);

    const std::string& result() const { return *result_; }
    // The same document, for who keeps it beyond the command's release.
    std::shared_ptr<const std::string> shared_result() const { return result_; }
    const std::string& status() const { return status_; }

    // Makes the result an error document; the status stays.
    void set_error(const std::string& text);

  protected:
    CommandLineBase();

    // Writes result and status.
    virtual bool do_execute() = 0;
    void set_result(std::shared_ptr<const std::string> document, const std::string& status);

    // True if the option is new.
    bool add_option(const std::string& name);
    // Null: the command has no such option.
    const CommandLineOption* get_option(const std::string& name) const;

    void reset();

  private:
    std::map<std::string, CommandLineOption> options_;
    std::shared_ptr<const std::string> result_;
    std::string status_;
};
