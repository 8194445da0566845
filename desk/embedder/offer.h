// The offer of an embedder: the entries of the context and of each table.
//
// Threads: any.
#pragma once

#include "desk/common/value_json.h"
#include "desk/embedder/description.h"

namespace desk {

// Describes each structure: its declared "size", and the byte at which each of its "entries" ends.
// Entries beyond the declared size are "withheld".
Json DescribeOffer(const Description& description);

}  // namespace desk
