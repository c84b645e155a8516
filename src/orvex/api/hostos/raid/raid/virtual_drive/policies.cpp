// Virtual drive cache, I/O, emulation, visibility, access and boot policies.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_vd_policies_ops(OpList& ops) { (void)ops; }

}  // namespace raid
