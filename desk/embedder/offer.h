// What an embedder offers: the entries of the context and of each table.
//
// Threads: any.
#pragma once

#include "desk/common/value_json.h"
#include "desk/embedder/description.h"

namespace desk {

// By structure: its declared "size", and the byte where each of its "entries" ends; those beyond
// the declared size are "withheld".
Json DescribeOffer(const Description& description);

}  // namespace desk
