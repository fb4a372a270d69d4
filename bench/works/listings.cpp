#include "bench/works/works.h"

namespace bench {

void listings(Stage& stage) {
    for (const int entries : {5'000, 100'000}) {
        const std::string folder = "entries" + std::to_string(entries);
        stage.workspace().make_files({folder, entries, 0});
        const int count = 100'000 / entries;
        stage.compare({.title = "entries listed, folder of " + std::to_string(entries),
                       .unit = operations,
                       .amount = static_cast<double>(entries) * count,
                       .work =
                           [&](Client& client, int) {
                               for (int index = 0; index < count; ++index) {
                                   client.list(folder);
                               }
                           }},
                      {stage.server(), stage.nginx().plain()});
        stage.workspace().remove(folder);
    }
}

}  // namespace bench
