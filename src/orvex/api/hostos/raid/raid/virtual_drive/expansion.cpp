// Virtual drive expansion and migration, SMART pass-through, SSD caching.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_vd_expansion_ops(OpList& ops) { (void)ops; }

}  // namespace raid
