#include <sys/stat.h>

#include <functional>

#include "client/cli/batch.h"
#include "client/cli/commands.h"
#include "client/cli/names.h"
#include "client/cli/progress_line.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/download.h"

namespace transmit::cli {
namespace {

bool is_folder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string parent(const std::string& path) {
    const auto separator = path.rfind('/');
    return separator == std::string::npos ? "." : path.substr(0, separator + 1);
}

class Get {
  public:
    Get(const Common& common, bool encrypted, std::string local)
        : common_(common),
          encrypted_(encrypted),
          local_(std::move(local)),
          into_folder_(is_folder(local_)),
          server_(connect_stubbornly(common)) {}

    ExitCode operator()(const std::string& path) {
        const std::string name = remote_name(path);
        if (name.empty()) {
            complain(path + ": this names no file");
            return ExitCode::file_not_found;
        }
        const auto fetched = fetch(path, into_folder_ ? joined(local_, name) : local_);
        if (!fetched) {
            complain(path, fetched.error());
            return exit_code(fetched.error());
        }
        return ExitCode::done;
    }

  private:
    Result<TransferReport> fetch(const std::string& path, const std::string& local) {
        ProgressLine line(path, common_.quiet);
        return download_file(server_, {common_.at(path), local, encrypted_},
                             [&](const Progress& progress) { line.show(progress); });
    }

    const Common& common_;
    bool encrypted_;
    std::string local_;
    bool into_folder_;
    RetryingConnection server_;
};

}  // namespace

ExitCode get(const Common& common, const TransferOptions& options) {
    std::vector<std::string> paths = options.paths;
    std::string local = ".";
    if (paths.size() > 1) {
        local = paths.back();
        paths.pop_back();
    }
    const std::string folder = paths.size() > 1 ? local : parent(local);
    if (!is_folder(folder)) {
        complain(folder + ": this folder doesn't exist");
        return ExitCode::folder_not_found;
    }
    Get get_one(common, options.encrypted, local);
    return for_each(paths, std::ref(get_one));
}

}  // namespace transmit::cli
