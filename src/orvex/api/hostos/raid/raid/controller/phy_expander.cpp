// PHY, expander and link diagnostics.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_phy_expander_ops(OpList& ops) { (void)ops; }

}  // namespace raid
