// Copyback and precopy.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_pd_copyback_ops(OpList& ops) { (void)ops; }

}  // namespace raid
