#include "exc/exc.h"

namespace exc {

// Here and nowhere else, so that the class's run-time type has one home, the shared library, and
// a host can catch by it.
CRuntimeExc::~CRuntimeExc() = default;

} // namespace exc
