// Virtual drive creation, deletion and listing.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_vd_lifecycle_ops(OpList& ops) { (void)ops; }

}  // namespace raid
