// The chassis model: the kinds of switch box and of board the daemon runs on, their
// capability tables, queries on them, and the mapping between a device id and the slot
// and chip that hold it.  All of it is constant data and pure functions.
#pragma once

#include "common.h"

// The kind of box.  0 to 54 are models; the last two are special values.
typedef enum system_type {
    S_ZR4000 = 0,
    S_ZR4001 = 1,
    S_ZR4002 = 2,
    S_ZR4003 = 3,
    S_ZR4004 = 4,
    S_ZR4005 = 5,
    S_ZR4006 = 6,
    S_ZR4007 = 7,
    S_ZR4008 = 8,
    S_ZR4009 = 9,
    S_ZR4010 = 10,
    S_ZR4011 = 11,
    S_ZR4012 = 12,
    S_ZR4013 = 13,
    S_ZR4014 = 14,
    S_ZR4015 = 15,
    S_ZR4016 = 16,
    S_ZR4017 = 17,
    S_ZR4018 = 18,
    S_ZR4019 = 19,
    S_ZR4020 = 20,
    S_ZR4021 = 21,
    S_ZR4022 = 22,
    S_ZR4023 = 23,
    S_ZR4024 = 24,
    S_ZR4025 = 25,
    S_ZR4026 = 26,
    S_ZR4027 = 27,
    S_ZR4028 = 28,
    S_ZR4029 = 29,
    S_ZR4030 = 30,
    S_ZR4031 = 31,
    S_ZR4032 = 32,
    S_ZR4033 = 33,
    S_ZR4034 = 34,
    S_ZR4035 = 35,
    S_ZR4036 = 36,
    S_ZR4037 = 37,
    S_ZR4038 = 38,
    S_ZR4039 = 39,
    S_ZR4040 = 40,
    S_ZR4041 = 41,
    S_ZR4042 = 42,
    S_ZR4043 = 43,
    S_ZR4044 = 44,
    S_ZR4045 = 45,
    S_ZR4046 = 46,
    S_ZR4047 = 47,
    S_ZR4048 = 48,
    S_ZR4049 = 49,
    S_ZR4050 = 50,
    S_ZR4051 = 51,
    S_ZR4052 = 52,
    S_ZR4053 = 53,
    S_ZR4054 = 54,
    S_AUTO_DETECT = 55,
    S_NOT_SYSTEM = 56,
} system_type_t;

// The kind of board or unit.
typedef enum subsystem_type {
    ST_ZR4100 = 0,
    ST_ZR4101 = 1,
    ST_ZR4102 = 2,
    ST_ZR4103 = 3,
    ST_ZR4104 = 4,
    ST_ZR4105 = 5,
    ST_ZR4106 = 6,
    ST_ZR4107 = 7,
    ST_ZR4108 = 8,
    ST_ZR4109 = 9,
    ST_ZR4110 = 10,
    ST_ZR4111 = 11,
    ST_ZR4112 = 12,
    ST_ZR4113 = 13,
    ST_ZR4114 = 14,
    ST_ZR4115 = 15,
    ST_ZR4116 = 16,
    ST_ZR4117 = 17,
    ST_ZR4118 = 18,
    ST_ZR4119 = 19,
    ST_ZR4120 = 20,
    ST_ZR4121 = 21,
    ST_ZR4122 = 22,
    ST_ZR4123 = 23,
    ST_ZR4124 = 24,
    ST_ZR4125 = 25,
    ST_ZR4126 = 26,
    ST_ZR4127 = 27,
    ST_ZR4128 = 28,
    ST_ZR4129 = 29,
    ST_ZR4130 = 30,
    ST_ZR4131 = 31,
    ST_ZR4132 = 32,
    ST_ZR4133 = 33,
    ST_ZR4134 = 34,
    ST_ZR4135 = 35,
    ST_ZR4136 = 36,
    ST_ZR4137 = 37,
    ST_ZR4138 = 38,
    ST_ZR4139 = 39,
    ST_ZR4140 = 40,
    ST_ZR4141 = 41,
    ST_ZR4142 = 42,
    ST_ZR4143 = 43,
    ST_ZR4144 = 44,
    ST_ZR4145 = 45,
    ST_ZR4146 = 46,
    ST_ZR4147 = 47,
    ST_ZR4148 = 48,
    ST_ZR4149 = 49,
    ST_ZR4150 = 50,
    ST_ZR4151 = 51,
    ST_ZR4152 = 52,
    ST_ZR4153 = 53,
    ST_ZR4154 = 54,
    ST_ZR4155 = 55,
    ST_ZR4156 = 56,
    ST_ZR4157 = 57,
    ST_ZR4158 = 58,
    ST_ZR4159 = 59,
    ST_ZR4160 = 60,
    ST_ZR4161 = 61,
    ST_ZR4162 = 62,
    ST_ZR4163 = 63,
    ST_ZR4164 = 64,
    ST_ZR4165 = 65,
    ST_ZR4166 = 66,
    ST_ZR4167 = 67,
    ST_ZR4168 = 68,
    ST_ZR4169 = 69,
    ST_ZR4170 = 70,
    ST_ZR4171 = 71,
    ST_ZR4172 = 72,
    ST_ZR4173 = 73,
    ST_ZR4174 = 74,
    ST_ZR4175 = 75,
    ST_ZR4176 = 76,
    ST_ZR4177 = 77,
    ST_ZR4178 = 78,
    ST_ZR4179 = 79,
    ST_ZR4180 = 80,
    ST_ZR4181 = 81,
    ST_ZR4182 = 82,
    ST_ZR4183 = 83,
    ST_ZR4184 = 84,
    ST_AUTO_DETECT = 85,
} subsystem_type_t;

// Number of entries of the display tables and rows of the capability tables.
#define SAH_SYSTEM_TYPE_STR_CNT 56
#define SAH_SUBSYSTEM_TYPE_STR_CNT 85
#define SAH_SYSTEM_TABLE_CNT 54
#define SAH_SUBSYSTEM_TABLE_CNT 83

// Display names by type, for system_type2str() and subsystem_type2str().
extern const char *g_system_type_str[SAH_SYSTEM_TYPE_STR_CNT];
extern const char *g_subsystem_type_str[SAH_SUBSYSTEM_TYPE_STR_CNT];

// A row of the names a model is reported under, by the CPU board it is built for.  A
// table of rows ends with a null cpu_name.
struct sys_xlate {
    const char *cpu_name;
    const char *rpt_name;
    const char *unmapped;
};

// One row per system type, indexed by the type.
struct sys_type_cap {
    system_type_t sys;        // equals the row's index
    tbool expect;             // may occur on this product
    tbool gen1_dual;          // chassis of the first generation
    tbool gen2_dual;          // chassis of the second generation
    tbool is_ib_switch;
    struct sys_xlate *do_xlate;  // names by CPU board, or null
    uint8 e_port_cnt;         // external ports

    // Kept for the chassis manager; the daemon reads none of these.
    tbool has_cpld;
    tbool has_stat_led;
    tbool spine_xlate;
    tbool cpu_xlate;
    uint8 fan_cnt;
    tbool interrupt;
    uint32 chassis_fan_speed;     // percent
    uint32 spine_fan_speed;       // percent
    uint32 ps_fan_speed;          // percent
    uint32 chassis_fan_max_speed; // RPM
    uint32 spine_fan_max_speed;   // RPM
    uint32 ps_fan_max_speed;      // RPM
    int32 core_temp_max;          // degrees Celsius
    int32 core_temp_min;
    int32 ambient_temp_max;
    int32 ambient_temp_min;
    uint32 no_isr_sweep_period;   // seconds
    tbool is_ib_hw_supported;
    tbool is_eth_hw_supported;
    tbool is_vpi_hw_supported;
    const char *eula_link;
    uint32 fan_speed_read_delay;  // milliseconds
};

// One row per subsystem type, indexed by the type.
struct subsys_type_cap {
    subsystem_type_t subsys;  // equals the row's index
    tbool expect;
    tbool is_ib_switch;
    uint8 gen;
    tbool spine;
    tbool sfan;
    tbool ps;
    tbool cpu;
    tbool leaf;
    tbool mod_fan;
};

extern struct sys_type_cap g_system_table[SAH_SYSTEM_TABLE_CNT];
extern struct subsys_type_cap g_subsystem_table[SAH_SUBSYSTEM_TABLE_CNT];

// The CPU board this program is built for, matched against sys_xlate::cpu_name.
extern const char *build_target_hwname_lc;

typedef enum {
    SAH_LEAFS = 0,
    SAH_SPINES = 1,
} enum_sah_slot_type_t;

typedef enum {
    DEVICE_TYPE_VEXAR = 0,
    DEVICE_TYPE_TARN = 1,
    DEVICE_TYPE_SOLA = 2,
    DEVICE_TYPE_CORI = 3,
    DEVICE_TYPE_CPLD = 4,
    DEVICE_TYPE_TARN2 = 5,
    DEVICE_TYPE_MAX = 6,
    DEVICE_TYPE_UNKNOWN = DEVICE_TYPE_MAX,
} burnable_device_type;

// "UNKNOWN (NEGATIVE VALUE)" below 0, "UNKNOWN" from arr_size up, else the entry.
const char *convert_enum2str(int val, const char **str_arr, int arr_size);
const char *system_type2str(int system_type);
const char *subsystem_type2str(int subsystem_type);

// Give the capability row of a type in *p_cap, or null for the special values (with a
// result of 0).  Fails on a type out of range, one without a case, a row out of step with
// its index, and a type not expected on this product.
int validate_system_type(system_type_t sys, struct sys_type_cap **p_cap);
int validate_subsystem_type(subsystem_type_t sub, struct subsys_type_cap **p_cap);

// is_ib_switch of the row (false without a row); the result is the validation's.
int sah_is_switch_system(system_type_t sys, tbool *r_type);

// Queries on a type's row; false when the type fails validation or has no row.
tbool sah_sqry_ib_is_standalone(system_type_t sys);
tbool sah_sqry_ib_is_composite(system_type_t sys);
tbool sah_sqry_ib_is_gen2(system_type_t sys);
// Whether a port number is one of the external ports; true for any port when the type
// can't tell (invalid, no row, not an IB switch).
tbool sah_sqry_ib_is_ext_port(system_type_t sys, int8 port_number);
tbool sah_mqry_ib_spine(subsystem_type_t sub);
tbool sah_mqry_ib_leaf(subsystem_type_t sub);

// The name to show for a type: the translation for this CPU board when the type has a
// table of them (its unmapped form when asked), else the display name.
const char *sah_get_system_type_str(system_type_t sys, tbool unmapped);

// Device id to slot number (1 on a standalone system) and to chip position.
int sah_convert_dev_id_2_slot(system_type_t sys, enum_sah_slot_type_t slot_type, uint8 dev,
                              uint8 *slot);
int sah_convert_dev_2_chip(uint8 dev, uint8 *chip_number);
// Whether a device sits on a spine or a leaf; standalone systems are all leaf.
int sah_get_slot_type_type_from_devid(uint32 devid, system_type_t sys,
                                      enum_sah_slot_type_t *ret_slot_type,
                                      tbool *ret_is_standalone);
// "1" on a standalone system, else "S%02u" or "L%02u" with the slot number.
int sah_convert_devid_to_slot_str(uint32 devid, system_type_t sys, char *ret_slot_str,
                                  uint8 ret_str_len);
// The kind of chip a system is built of; lc_err_multiple for chassis that mix kinds.
int sah_get_chip_type_by_system(uint32 sys_type, burnable_device_type *dev_type);
