// The models built into the library; the same texts are kept as files in models/.
#include "vqd_sim.h"

namespace vqdsim {

namespace {

const char kStandalone36[] = R"MODEL(
# A standalone 36-port EDR switch: one device, 36 front-panel QSFP28 cages.
device 1 board_id="VQ_SW36_EDR" vendor_id=0x02ab node_guid=0x02ab010300a1b2c0 system_image_guid=0x02ab010300a1b2c0 pplm=no

# Front panel: local port N is InfiniBand port N in module N-1, all of SWID 0.
port 1 1-36 swid=0 ib_port=auto module=auto width=4 speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up

# Cables in most cages; the last four are empty.
module 1 0-31 present=yes type=qsfp28 vendor="VQ CABLES" part="VQC-EDR-2M" length=2
module 1 32-35 present=no
)MODEL";

const char kChassisSmall[] = R"MODEL(
# A small chassis: two leaves with 18 front-panel cages and 18 internal ports each,
# and one spine whose 36 ports are all internal.
device 1 board_id="VQ_LEAF18_EDR" vendor_id=0x02ab node_guid=0x02ab010300c00010 system_image_guid=0x02ab010300c00000 pplm=no
device 2 board_id="VQ_LEAF18_EDR" vendor_id=0x02ab node_guid=0x02ab010300c00020 system_image_guid=0x02ab010300c00000 pplm=no
device 3 board_id="VQ_SPINE36_EDR" vendor_id=0x02ab node_guid=0x02ab010300c00030 system_image_guid=0x02ab010300c00000 pplm=no

# Leaves: ports 1-18 to the front panel, 19-36 to the spine.
port 1 1-18 swid=0 ib_port=auto module=auto width=4 speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up
port 1 19-36 swid=0 ib_port=auto module=none width=4 speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up
port 2 1-18 swid=0 ib_port=auto module=auto width=4 speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up
port 2 19-36 swid=0 ib_port=auto module=none width=4 speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up
module 1 0-17 present=yes type=qsfp28 vendor="VQ CABLES" part="VQC-EDR-3M" length=3
module 2 0-11 present=yes type=qsfp vendor="VQ CABLES" part="VQC-FDR-1M" length=1
module 2 12-17 present=no

# Spine: all internal.
port 3 1-36 swid=0 ib_port=auto module=none width=4 speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up
)MODEL";

}  // namespace

const char *builtin_model_text(const std::string &name)
{
    if (name == "standalone36") {
        return kStandalone36 + 1;  // past the newline that opens the raw text
    }
    if (name == "chassis_small") {
        return kChassisSmall + 1;
    }
    return nullptr;
}

}  // namespace vqdsim
