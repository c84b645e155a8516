// Supercapacitor information and self-learn.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_supercap_ops(OpList& ops) { (void)ops; }

}  // namespace raid
