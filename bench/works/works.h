#pragma once

#include "bench/stage.h"

namespace bench {

// Each does its work with the contenders that it suits and prints a table.

void downloads(Stage& stage);            // one large file a stream
void uploads(Stage& stage);              // the same, the other way
void encrypted_downloads(Stage& stage);  // both under a cipher
void encrypted_uploads(Stage& stage);
void small_files(Stage& stage);  // many files of 4 KiB, conversation by conversation
void files_ahead(Stage& stage);  // the same, sent without awaiting answers
void requests(Stage& stage);     // the smallest request, one at a time and sent ahead
void latency(Stage& stage);      // one request beside running downloads
void idle(Stage& stage);         // memory and processor of connections that do nothing
void listings(Stage& stage);     // folders of 5,000 and of 100,000 entries
void node_list(Stage& stage);    // the command port's list with 10,000 nodes
void streams(Stage& stage);      // cost per byte with 1 to 1,000 streams
void sizes(Stage& stage);        // cost per byte of files of 1 MiB to 20 GiB

}  // namespace bench
