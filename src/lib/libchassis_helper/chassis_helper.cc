// The chassis model: display tables, capability tables, the queries on them and the
// mapping between device ids and slots/chips.

#include "chassis_helper.h"

#include <cstdio>

#include "logging.h"

const char *build_target_hwname_lc = "m460ex";

// ---------------------------------------------------------------------------------------
// Display names.  A model shows under its type name; 54 is a placeholder type.

const char *g_system_type_str[SAH_SYSTEM_TYPE_STR_CNT] = {
    "ZR4000",
    "ZR4001",
    "ZR4002",
    "ZR4003",
    "ZR4004",
    "ZR4005",
    "ZR4006",
    "ZR4007",
    "ZR4008",
    "ZR4009",
    "ZR4010",
    "ZR4011",
    "ZR4012",
    "ZR4013",
    "ZR4014",
    "ZR4015",
    "ZR4016",
    "ZR4017",
    "ZR4018",
    "ZR4019",
    "ZR4020",
    "ZR4021",
    "ZR4022",
    "ZR4023",
    "ZR4024",
    "ZR4025",
    "ZR4026",
    "ZR4027",
    "ZR4028",
    "ZR4029",
    "ZR4030",
    "ZR4031",
    "ZR4032",
    "ZR4033",
    "ZR4034",
    "ZR4035",
    "ZR4036",
    "ZR4037",
    "ZR4038",
    "ZR4039",
    "ZR4040",
    "ZR4041",
    "ZR4042",
    "ZR4043",
    "ZR4044",
    "ZR4045",
    "ZR4046",
    "ZR4047",
    "ZR4048",
    "ZR4049",
    "ZR4050",
    "ZR4051",
    "ZR4052",
    "ZR4053",
    "UNDEFINED",
    "UNKNOWN",
};

const char *g_subsystem_type_str[SAH_SUBSYSTEM_TYPE_STR_CNT] = {
    "ZR4100",
    "ZR4101",
    "ZR4102",
    "ZR4103",
    "ZR4104",
    "ZR4105",
    "ZR4106",
    "ZR4107",
    "ZR4108",
    "ZR4109",
    "ZR4110",
    "ZR4111",
    "ZR4112",
    "ZR4113",
    "ZR4114",
    "ZR4115",
    "ZR4116",
    "ZR4117",
    "ZR4118",
    "ZR4119",
    "ZR4120",
    "ZR4121",
    "ZR4122",
    "ZR4123",
    "ZR4124",
    "ZR4125",
    "ZR4126",
    "ZR4127",
    "ZR4128",
    "ZR4129",
    "ZR4130",
    "ZR4131",
    "ZR4132",
    "ZR4133",
    "ZR4134",
    "ZR4135",
    "ZR4136",
    "ZR4137",
    "ZR4138",
    "ZR4139",
    "ZR4140",
    "ZR4141",
    "ZR4142",
    "ZR4143",
    "ZR4144",
    "ZR4145",
    "ZR4146",
    "ZR4147",
    "ZR4148",
    "ZR4149",
    "ZR4150",
    "ZR4151",
    "ZR4152",
    "ZR4153",
    "ZR4154",
    "ZR4155",
    "ZR4156",
    "ZR4157",
    "ZR4158",
    "ZR4159",
    "ZR4160",
    "ZR4161",
    "ZR4162",
    "ZR4163",
    "ZR4164",
    "ZR4165",
    "ZR4166",
    "ZR4167",
    "ZR4168",
    "ZR4169",
    "ZR4170",
    "ZR4171",
    "ZR4172",
    "ZR4173",
    "ZR4174",
    "ZR4175",
    "ZR4176",
    "ZR4177",
    "ZR4178",
    "ZR4179",
    "ZR4180",
    "ZR4181",
    "ZR4182",
    "ZR4183",
    "UNKNOWN",
};

// ---------------------------------------------------------------------------------------
// Capability tables.
//
// The columns the daemon reads (expect, gen1_dual, gen2_dual, is_ib_switch, do_xlate,
// e_port_cnt) are fixed by the product line.  The cooling and sensor columns belong to the
// chassis manager; each row takes them from one of the environment profiles below, the
// one that fits its mechanics.  These profiles are the one place to change those values.

// Names by CPU board: the same model is reported under another name on an older board.
static struct sys_xlate g_sys_xlate_zr4006[] = {
    {"m460ex", "ZR5035", "ZR503X"},
    {"m405ex", "ZR5030", "ZR503X"},
    {nullptr, nullptr, nullptr},
};

#define SAH_EULA_LINK "/usr/share/doc/ovd/licence.txt"

// Environment profiles (chassis manager only): CPLD, status LED, spine and CPU name
// translation, fan count, interrupt-driven sensors, default fan speeds (percent), maximum
// fan speeds (RPM), core and ambient temperature limits (degrees Celsius), sensor sweep
// period without interrupts (seconds), hardware personalities, licence text and the delay
// before a fan speed reading is trusted (milliseconds).
#define ENV_FIXED_1U                                                                      \
    .has_cpld = 1, .has_stat_led = 1, .spine_xlate = 0, .cpu_xlate = 0, .fan_cnt = 4,     \
    .interrupt = 1, .chassis_fan_speed = 60, .spine_fan_speed = 0, .ps_fan_speed = 60,    \
    .chassis_fan_max_speed = 21000, .spine_fan_max_speed = 0, .ps_fan_max_speed = 18000,  \
    .core_temp_max = 105, .core_temp_min = 0, .ambient_temp_max = 45,                     \
    .ambient_temp_min = 0, .no_isr_sweep_period = 10, .is_ib_hw_supported = 1,            \
    .is_eth_hw_supported = 0, .is_vpi_hw_supported = 0, .eula_link = SAH_EULA_LINK,       \
    .fan_speed_read_delay = 3000
#define ENV_FIXED_2U                                                                      \
    .has_cpld = 1, .has_stat_led = 1, .spine_xlate = 0, .cpu_xlate = 0, .fan_cnt = 6,     \
    .interrupt = 1, .chassis_fan_speed = 50, .spine_fan_speed = 0, .ps_fan_speed = 50,    \
    .chassis_fan_max_speed = 16000, .spine_fan_max_speed = 0, .ps_fan_max_speed = 18000,  \
    .core_temp_max = 105, .core_temp_min = 0, .ambient_temp_max = 40,                     \
    .ambient_temp_min = 0, .no_isr_sweep_period = 10, .is_ib_hw_supported = 1,            \
    .is_eth_hw_supported = 1, .is_vpi_hw_supported = 1, .eula_link = SAH_EULA_LINK,       \
    .fan_speed_read_delay = 3000
#define ENV_CHASSIS_G1                                                                    \
    .has_cpld = 0, .has_stat_led = 1, .spine_xlate = 1, .cpu_xlate = 1, .fan_cnt = 4,     \
    .interrupt = 0, .chassis_fan_speed = 70, .spine_fan_speed = 70, .ps_fan_speed = 70,   \
    .chassis_fan_max_speed = 6000, .spine_fan_max_speed = 6000, .ps_fan_max_speed = 12000,\
    .core_temp_max = 100, .core_temp_min = 0, .ambient_temp_max = 40,                     \
    .ambient_temp_min = 0, .no_isr_sweep_period = 5, .is_ib_hw_supported = 1,             \
    .is_eth_hw_supported = 0, .is_vpi_hw_supported = 0, .eula_link = SAH_EULA_LINK,       \
    .fan_speed_read_delay = 5000
#define ENV_CHASSIS_G2                                                                    \
    .has_cpld = 1, .has_stat_led = 1, .spine_xlate = 1, .cpu_xlate = 1, .fan_cnt = 6,     \
    .interrupt = 1, .chassis_fan_speed = 60, .spine_fan_speed = 60, .ps_fan_speed = 60,   \
    .chassis_fan_max_speed = 9000, .spine_fan_max_speed = 9000, .ps_fan_max_speed = 18000,\
    .core_temp_max = 105, .core_temp_min = 0, .ambient_temp_max = 40,                     \
    .ambient_temp_min = 0, .no_isr_sweep_period = 5, .is_ib_hw_supported = 1,             \
    .is_eth_hw_supported = 0, .is_vpi_hw_supported = 0, .eula_link = SAH_EULA_LINK,       \
    .fan_speed_read_delay = 5000
#define ENV_GATEWAY                                                                       \
    .has_cpld = 1, .has_stat_led = 1, .spine_xlate = 0, .cpu_xlate = 0, .fan_cnt = 2,     \
    .interrupt = 0, .chassis_fan_speed = 60, .spine_fan_speed = 0, .ps_fan_speed = 60,    \
    .chassis_fan_max_speed = 21000, .spine_fan_max_speed = 0, .ps_fan_max_speed = 18000,  \
    .core_temp_max = 95, .core_temp_min = 0, .ambient_temp_max = 40,                      \
    .ambient_temp_min = 0, .no_isr_sweep_period = 10, .is_ib_hw_supported = 0,            \
    .is_eth_hw_supported = 1, .is_vpi_hw_supported = 0, .eula_link = SAH_EULA_LINK,       \
    .fan_speed_read_delay = 3000

#define SYS_ROW(type, exp, g1, g2, ib, xlate, ports, env)                                \
    {.sys = (type), .expect = (exp), .gen1_dual = (g1), .gen2_dual = (g2),                \
     .is_ib_switch = (ib), .do_xlate = (xlate), .e_port_cnt = (ports), env}

struct sys_type_cap g_system_table[SAH_SYSTEM_TABLE_CNT] = {
    //      type      expect gen1 gen2 ib  do_xlate     ports  environment
    SYS_ROW(S_ZR4000, 1, 1, 0, 1, nullptr,            18, ENV_CHASSIS_G1),
    SYS_ROW(S_ZR4001, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4002, 0, 0, 0, 1, nullptr,            24, ENV_FIXED_1U),
    SYS_ROW(S_ZR4003, 0, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4004, 0, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4005, 0, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4006, 1, 0, 0, 1, g_sys_xlate_zr4006, 36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4007, 1, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4008, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4009, 0, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4010, 1, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4011, 1, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4012, 1, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4013, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4014, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4015, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4016, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4017, 0, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4018, 1, 0, 0, 1, nullptr,            32, ENV_FIXED_1U),
    SYS_ROW(S_ZR4019, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4020, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4021, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4022, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4023, 0, 0, 0, 0, nullptr,             0, ENV_GATEWAY),
    SYS_ROW(S_ZR4024, 1, 0, 0, 1, nullptr,            34, ENV_FIXED_1U),
    SYS_ROW(S_ZR4025, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4026, 1, 0, 0, 1, nullptr,            64, ENV_FIXED_2U),
    SYS_ROW(S_ZR4027, 1, 0, 0, 1, nullptr,            60, ENV_FIXED_2U),
    SYS_ROW(S_ZR4028, 1, 0, 0, 1, nullptr,            18, ENV_FIXED_1U),
    SYS_ROW(S_ZR4029, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4030, 1, 0, 0, 1, nullptr,            12, ENV_FIXED_1U),
    SYS_ROW(S_ZR4031, 1, 0, 0, 1, nullptr,            12, ENV_FIXED_1U),
    SYS_ROW(S_ZR4032, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4033, 1, 0, 0, 1, nullptr,            60, ENV_FIXED_2U),
    SYS_ROW(S_ZR4034, 1, 0, 0, 1, nullptr,             4, ENV_FIXED_1U),
    SYS_ROW(S_ZR4035, 1, 0, 0, 1, nullptr,             2, ENV_FIXED_1U),
    SYS_ROW(S_ZR4036, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4037, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4038, 1, 0, 0, 1, nullptr,            34, ENV_FIXED_1U),
    SYS_ROW(S_ZR4039, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4040, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4041, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4042, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4043, 1, 0, 1, 1, nullptr,            18, ENV_CHASSIS_G2),
    SYS_ROW(S_ZR4044, 1, 0, 0, 1, nullptr,            32, ENV_FIXED_1U),
    SYS_ROW(S_ZR4045, 1, 0, 0, 1, nullptr,             2, ENV_FIXED_1U),
    SYS_ROW(S_ZR4046, 1, 0, 0, 1, nullptr,            60, ENV_FIXED_2U),
    SYS_ROW(S_ZR4047, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4048, 1, 0, 0, 1, nullptr,            32, ENV_FIXED_1U),
    SYS_ROW(S_ZR4049, 1, 0, 0, 1, nullptr,            56, ENV_FIXED_1U),
    SYS_ROW(S_ZR4050, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
    SYS_ROW(S_ZR4051, 1, 0, 0, 1, nullptr,            32, ENV_FIXED_1U),
    SYS_ROW(S_ZR4052, 1, 0, 0, 1, nullptr,            16, ENV_FIXED_1U),
    SYS_ROW(S_ZR4053, 1, 0, 0, 1, nullptr,            36, ENV_FIXED_1U),
};

// Boards: spine and leaf boards of the chassis, the switch boards of fixed systems, and
// the units without switch chips (CPU boards, power supplies, spine fans, fan modules).
// Generation 1 up to 15, 2 up to 63, 3 from 64.
struct subsys_type_cap g_subsystem_table[SAH_SUBSYSTEM_TABLE_CNT] = {
    //  type     expect ib gen spine sfan ps cpu leaf mod_fan
    {ST_ZR4100, 1, 0, 1, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4101, 1, 1, 1, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4102, 1, 1, 1, 0, 0, 0, 0, 1, 0},  // leaf
    {ST_ZR4103, 0, 0, 1, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4104, 1, 1, 1, 1, 0, 0, 0, 0, 0},  // spine
    {ST_ZR4105, 0, 0, 1, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4106, 0, 1, 1, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4107, 0, 0, 1, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4108, 1, 0, 1, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4109, 1, 0, 1, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4110, 1, 0, 1, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4111, 1, 1, 1, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4112, 1, 0, 1, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4113, 1, 0, 1, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4114, 1, 0, 1, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4115, 1, 0, 1, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4116, 0, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4117, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4118, 1, 1, 2, 0, 0, 0, 0, 1, 0},  // leaf
    {ST_ZR4119, 1, 1, 2, 1, 0, 0, 0, 0, 0},  // spine
    {ST_ZR4120, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4121, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4122, 0, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4123, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4124, 0, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4125, 0, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4126, 0, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4127, 0, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4128, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4129, 0, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4130, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4131, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4132, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4133, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4134, 1, 1, 2, 0, 0, 0, 0, 1, 0},  // leaf
    {ST_ZR4135, 1, 1, 2, 1, 0, 0, 0, 0, 0},  // spine
    {ST_ZR4136, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4137, 0, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4138, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4139, 1, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4140, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4141, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4142, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4143, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4144, 1, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4145, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4146, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4147, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4148, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4149, 1, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4150, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4151, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4152, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4153, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4154, 1, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4155, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4156, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4157, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4158, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4159, 1, 0, 2, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4160, 1, 0, 2, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4161, 1, 1, 2, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4162, 1, 0, 2, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4163, 1, 0, 2, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4164, 1, 0, 3, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4165, 1, 1, 3, 1, 0, 0, 0, 0, 0},  // spine
    {ST_ZR4166, 1, 1, 3, 0, 0, 0, 0, 1, 0},  // leaf
    {ST_ZR4167, 1, 0, 3, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4168, 1, 0, 3, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4169, 1, 0, 3, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4170, 1, 0, 3, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4171, 1, 1, 3, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4172, 1, 0, 3, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4173, 1, 0, 3, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4174, 1, 0, 3, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4175, 1, 0, 3, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4176, 1, 1, 3, 0, 0, 0, 0, 0, 0},  // switch
    {ST_ZR4177, 1, 0, 3, 0, 0, 1, 0, 0, 0},  // ps
    {ST_ZR4178, 1, 0, 3, 0, 1, 0, 0, 0, 0},  // sfan
    {ST_ZR4179, 1, 0, 3, 0, 0, 0, 0, 0, 1},  // mod_fan
    {ST_ZR4180, 1, 0, 3, 0, 0, 0, 1, 0, 0},  // cpu
    {ST_ZR4181, 1, 1, 3, 1, 0, 0, 0, 0, 0},  // spine
    {ST_ZR4182, 1, 1, 3, 0, 0, 0, 0, 1, 0},  // leaf
};

// ---------------------------------------------------------------------------------------
// Device ids on a chassis: four chip positions a slot, spines first, then leaves.  Type 29
// keeps its odd pair: a leaf device of 6 to 8 lies below its offset.

struct sah_dev_layout {
    system_type_t sys;
    uint8 last_spine_dev;
    uint8 leaf_offset;
};

static const sah_dev_layout g_dev_layout[] = {
    {S_ZR4019, 72, 72}, {S_ZR4020, 36, 36}, {S_ZR4021, 24, 24}, {S_ZR4022, 12, 12},
    {S_ZR4029, 5, 8},   {S_ZR4040, 72, 72}, {S_ZR4041, 72, 72}, {S_ZR4042, 72, 72},
    {S_ZR4043, 72, 72},
};

static const sah_dev_layout *sah_find_dev_layout(system_type_t sys)
{
    for (const auto &row : g_dev_layout) {
        if (row.sys == sys) {
            return &row;
        }
    }
    return nullptr;
}

// ---------------------------------------------------------------------------------------
// Names.

const char *convert_enum2str(int val, const char **str_arr, int arr_size)
{
    if (val < 0) {
        return "UNKNOWN (NEGATIVE VALUE)";
    }
    if (val >= arr_size || str_arr == nullptr) {
        return "UNKNOWN";
    }
    return str_arr[val];
}

const char *system_type2str(int system_type)
{
    return convert_enum2str(system_type, g_system_type_str, SAH_SYSTEM_TYPE_STR_CNT);
}

const char *subsystem_type2str(int subsystem_type)
{
    return convert_enum2str(subsystem_type, g_subsystem_type_str, SAH_SUBSYSTEM_TYPE_STR_CNT);
}

// ---------------------------------------------------------------------------------------
// Validation.

int validate_system_type(system_type_t sys, struct sys_type_cap **p_cap)
{
    int err = 0;
    struct sys_type_cap *cap = nullptr;
    const int type = static_cast<int>(sys);

    bail_null(p_cap);
    *p_cap = nullptr;

    if (type < 0 || type > S_NOT_SYSTEM) {
        lc_log_basic(LOG_ERR, "%s: sys=%d outside range!", __func__, type);
        err = lc_err_unexpected_case;
        goto bail;
    }
    if (sys == S_AUTO_DETECT || sys == S_NOT_SYSTEM) {
        goto bail;
    }
    if (sys == S_ZR4045 || sys == S_ZR4054) {
        lc_log_basic(LOG_ERR, "%s: Unknown system type %u-%s!", __func__,
                     static_cast<unsigned>(type), system_type2str(type));
        err = lc_err_unexpected_case;
        goto bail;
    }
    cap = &g_system_table[type];
    if (cap->sys != sys) {
        lc_log_basic(LOG_ERR, "%s: Check sysapi(); type[%d-%s] not:[%d-%s]!", __func__, type,
                     system_type2str(type), static_cast<int>(cap->sys),
                     system_type2str(cap->sys));
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (!cap->expect) {
        lc_log_basic(LOG_ERR, "%s: Unexpected system [%d-%s]!", __func__, type,
                     system_type2str(type));
        err = lc_err_assertion_failed;
        goto bail;
    }
    *p_cap = cap;

bail:
    return err;
}

int validate_subsystem_type(subsystem_type_t sub, struct subsys_type_cap **p_cap)
{
    int err = 0;
    struct subsys_type_cap *cap = nullptr;
    const int type = static_cast<int>(sub);

    bail_null(p_cap);
    *p_cap = nullptr;

    if (type < 0 || type > ST_AUTO_DETECT) {
        lc_log_basic(LOG_ERR, "%s: sub=%d outside range!", __func__, type);
        err = lc_err_unexpected_case;
        goto bail;
    }
    if (sub == ST_AUTO_DETECT) {
        goto bail;
    }
    if (sub == ST_ZR4172 || sub == ST_ZR4183 || sub == ST_ZR4184) {
        lc_log_basic(LOG_ERR, "%s: Unknown subsystem type %u-%s!", __func__,
                     static_cast<unsigned>(type), subsystem_type2str(type));
        err = lc_err_unexpected_case;
        goto bail;
    }
    cap = &g_subsystem_table[type];
    if (cap->subsys != sub) {
        lc_log_basic(LOG_ERR, "%s: Check sysapi(); %d-%s not %d-%s", __func__, type,
                     subsystem_type2str(type), static_cast<int>(cap->subsys),
                     subsystem_type2str(cap->subsys));
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (!cap->expect) {
        lc_log_basic(LOG_ERR, "%s: Unexpected subsystem %d-%s!", __func__, type,
                     subsystem_type2str(type));
        err = lc_err_assertion_failed;
        goto bail;
    }
    *p_cap = cap;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Queries.  A type that fails validation has been logged there; the query answers false.

static const sys_type_cap *sah_sys_row(system_type_t sys)
{
    struct sys_type_cap *cap = nullptr;
    if (validate_system_type(sys, &cap) != 0) {
        return nullptr;
    }
    return cap;
}

static const subsys_type_cap *sah_subsys_row(subsystem_type_t sub)
{
    struct subsys_type_cap *cap = nullptr;
    if (validate_subsystem_type(sub, &cap) != 0) {
        return nullptr;
    }
    return cap;
}

int sah_is_switch_system(system_type_t sys, tbool *r_type)
{
    int err = 0;
    struct sys_type_cap *cap = nullptr;

    bail_null(r_type);
    *r_type = false;
    err = validate_system_type(sys, &cap);
    if (cap != nullptr) {
        *r_type = cap->is_ib_switch;
    }

bail:
    return err;
}

tbool sah_sqry_ib_is_standalone(system_type_t sys)
{
    const sys_type_cap *cap = sah_sys_row(sys);
    return cap != nullptr && cap->is_ib_switch && !cap->gen1_dual && !cap->gen2_dual;
}

tbool sah_sqry_ib_is_composite(system_type_t sys)
{
    const sys_type_cap *cap = sah_sys_row(sys);
    return cap != nullptr && cap->is_ib_switch && (cap->gen1_dual || cap->gen2_dual);
}

tbool sah_sqry_ib_is_gen2(system_type_t sys)
{
    const sys_type_cap *cap = sah_sys_row(sys);
    return cap != nullptr && cap->is_ib_switch && cap->gen2_dual;
}

tbool sah_sqry_ib_is_ext_port(system_type_t sys, int8 port_number)
{
    const sys_type_cap *cap = sah_sys_row(sys);
    if (cap == nullptr) {
        lc_log_basic(LOG_WARNING, "%s: Unexpected system %d port %d!", __func__,
                     static_cast<int>(sys), port_number);
        return true;
    }
    if (!cap->is_ib_switch) {
        lc_log_basic(LOG_WARNING, "%s: Non-IB system %d port %d!", __func__,
                     static_cast<int>(sys), port_number);
        return true;
    }
    return port_number >= 1 && port_number <= static_cast<int>(cap->e_port_cnt);
}

tbool sah_mqry_ib_spine(subsystem_type_t sub)
{
    const subsys_type_cap *cap = sah_subsys_row(sub);
    return cap != nullptr && cap->is_ib_switch && cap->spine;
}

tbool sah_mqry_ib_leaf(subsystem_type_t sub)
{
    const subsys_type_cap *cap = sah_subsys_row(sub);
    return cap != nullptr && cap->is_ib_switch && cap->leaf;
}

const char *sah_get_system_type_str(system_type_t sys, tbool unmapped)
{
    const sys_type_cap *cap = sah_sys_row(sys);
    if (cap == nullptr || cap->do_xlate == nullptr) {
        return system_type2str(sys);
    }
    for (const sys_xlate *row = cap->do_xlate; row->cpu_name != nullptr; ++row) {
        if (safe_strcmp(row->cpu_name, build_target_hwname_lc) == 0) {
            return unmapped ? row->unmapped : row->rpt_name;
        }
    }
    lc_log_basic(LOG_ERR, "%s: system %d with CPU '%s' has no translation!", __func__,
                 static_cast<int>(sys),
                 build_target_hwname_lc != nullptr ? build_target_hwname_lc : "");
    return system_type2str(sys);
}

// ---------------------------------------------------------------------------------------
// Device ids, slots and chips.

int sah_convert_dev_id_2_slot(system_type_t sys, enum_sah_slot_type_t slot_type, uint8 dev,
                              uint8 *slot)
{
    int err = 0;
    const sah_dev_layout *layout = nullptr;

    bail_null(slot);
    if (sah_sqry_ib_is_standalone(sys)) {
        *slot = 1;
        goto bail;
    }
    if (sys >= S_ZR4019 && sys <= S_ZR4043) {
        layout = sah_find_dev_layout(sys);
    }
    if (layout == nullptr) {
        lc_log_basic(LOG_WARNING, "%s: Unhandled type:[%d,%s]!", __func__,
                     static_cast<int>(sys), system_type2str(sys));
        *slot = 1;
        goto bail;
    }
    if (slot_type == SAH_LEAFS) {
        // 8-bit on purpose: a device below the offset wraps.
        dev = static_cast<uint8>(dev - layout->leaf_offset);
    }
    *slot = static_cast<uint8>((dev - 1) / 4 + 1);

bail:
    return err;
}

int sah_convert_dev_2_chip(uint8 dev, uint8 *chip_number)
{
    int err = 0;

    if (chip_number == nullptr) {
        lc_log_basic(LOG_ERR, "chip number return pointer  may not be null");
        err = lc_err_unexpected_null;
        goto bail;
    }
    *chip_number = dev & 0x3;

bail:
    return err;
}

int sah_get_slot_type_type_from_devid(uint32 devid, system_type_t sys,
                                      enum_sah_slot_type_t *ret_slot_type,
                                      tbool *ret_is_standalone)
{
    int err = 0;
    const sah_dev_layout *layout = nullptr;

    bail_null(ret_slot_type);
    bail_null(ret_is_standalone);
    if (sah_sqry_ib_is_standalone(sys)) {
        *ret_is_standalone = true;
        *ret_slot_type = SAH_LEAFS;
        goto bail;
    }
    *ret_is_standalone = false;
    layout = sah_find_dev_layout(sys);
    if (layout == nullptr) {
        lc_log_basic(LOG_WARNING, "%s: Unhandled type %d!", __func__, static_cast<int>(sys));
        goto bail;
    }
    *ret_slot_type = devid <= layout->last_spine_dev ? SAH_SPINES : SAH_LEAFS;

bail:
    return err;
}

int sah_convert_devid_to_slot_str(uint32 devid, system_type_t sys, char *ret_slot_str,
                                  uint8 ret_str_len)
{
    int err = 0;
    enum_sah_slot_type_t slot_type = SAH_LEAFS;
    tbool is_standalone = false;
    uint8 slot = 0;
    int len = 0;

    bail_null(ret_slot_str);
    bail_require(ret_str_len > 0);
    err = sah_get_slot_type_type_from_devid(devid, sys, &slot_type, &is_standalone);
    bail_error(err);
    if (is_standalone) {
        len = snprintf(ret_slot_str, ret_str_len, "%u", 1u);
    } else {
        err = sah_convert_dev_id_2_slot(sys, slot_type, static_cast<uint8>(devid), &slot);
        bail_error(err);
        len = snprintf(ret_slot_str, ret_str_len, slot_type == SAH_SPINES ? "S%02u" : "L%02u",
                       static_cast<unsigned>(slot));
    }
    if (len < 0 || len >= ret_str_len) {
        bail_force(lc_err_no_buffer_space);
    }

bail:
    return err;
}

int sah_get_chip_type_by_system(uint32 sys_type, burnable_device_type *dev_type)
{
    int err = 0;

    bail_null(dev_type);
    switch (sys_type) {
    case S_ZR4039:
        *dev_type = DEVICE_TYPE_TARN;
        break;
    case S_ZR4044:
    case S_ZR4049:
    case S_ZR4051:
    case S_ZR4052:
        *dev_type = DEVICE_TYPE_SOLA;
        break;
    case S_ZR4050:
        *dev_type = DEVICE_TYPE_TARN2;
        break;
    case S_ZR4040:
    case S_ZR4041:
    case S_ZR4042:
    case S_ZR4043:
        // These chassis mix chip kinds: the caller has to ask the device.
        *dev_type = DEVICE_TYPE_UNKNOWN;
        err = lc_err_multiple;
        break;
    default:
        *dev_type = DEVICE_TYPE_VEXAR;
        break;
    }

bail:
    return err;
}
