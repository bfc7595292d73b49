// The QuickBooks SDK layer (the qbCommon module): session, request execution, list queries and
// custom fields over qbXML.
#pragma once

#include "qb/transport.h"

namespace pelmark::qb {

// Module state of qbCommon: one per application.
struct QbState {};

}  // namespace pelmark::qb
