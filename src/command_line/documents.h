#pragma once

#include <list>
#include <string>

#include "src/shared/node_record.h"
#include "src/shared/transmit_statistics.h"

// The JSON documents of the command port. Every key is always there, in a fixed order, and nothing
// stands between the pieces. Floats are written as printf's %g does, so a busy transfer shows its
// speed in exponent form: 1.04858e+07.

const char* node_type_text(NodeType type);

// Every backslash becomes two: the one escape that the documents know.
std::string escape_backslashes(const std::string& text);

// Appends one node: {"node_id":...,"node_user_info":{}}. The user information is a JSON object
// already and stands there as it is.
void make_node_document(const NodeRecord& record, std::string& out);

// Appends {"transmit_nodes":[...]}.
void make_transmit_list_document(const std::list<NodeRecord>& records, std::string& out);

// Replaces `out` by {"transmit_statistics":{...}}. The time is local.
void make_transmit_statistics_document(const TransmitStatistics& statistics, std::string& out);
