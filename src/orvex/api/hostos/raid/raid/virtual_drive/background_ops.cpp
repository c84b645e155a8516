// Virtual drive consistency check, initialisation and erase.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_vd_background_ops(OpList& ops) { (void)ops; }

}  // namespace raid
