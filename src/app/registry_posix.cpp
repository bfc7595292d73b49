// The registry of the portable build: one in-memory registry for the whole process.
#include "app/registry.h"

namespace pelmark {

Registry& RealRegistry() {
    static MemoryRegistry registry;
    return registry;
}

}  // namespace pelmark
