// The daemon's picture of the switch: the device table, the per-SWID hardware contexts and
// the five port tables, with their records and the functions that copy them into the
// tables and free them.
//
// All of it is global and unlocked: only the event loop's thread touches it.  A value
// found with ht_lookup is the stored record itself; flows change it in place, and the
// pointer stays valid until the entry is deleted (or replaced by a new insert).
#pragma once

#include "common.h"
#include "hash_table.h"
#include "tstr_array.h"
#include "tstring.h"
#include "ttime.h"

// Device ids run from 0 to OVD_MAX_DEVICE_ID.
#define OVD_MAX_DEVICE_ID 216
#define OVD_NUM_DEVICES (OVD_MAX_DEVICE_ID + 1)
// SWIDs run from 0 to OVD_MAX_SWID; OVD_NO_SWID in a SWID field means none.
#define OVD_MAX_SWID 7
#define OVD_NUM_SWIDS (OVD_MAX_SWID + 1)
#define OVD_NO_SWID 255
// Local ports run from 1 to OVD_MAX_LOCAL_PORT; arrays indexed by local port have
// OVD_NUM_LOCAL_PORT_SLOTS entries, entry 0 unused.  Virtual ports start above.
#define OVD_MAX_LOCAL_PORT 64
#define OVD_NUM_LOCAL_PORT_SLOTS (OVD_MAX_LOCAL_PORT + 1)
// The marker of a configuration field that is not set.
#define OVD_CONFIG_NOT_SET 255

// The per-SWID hardware context; its contents belong to the hardware access layer.
struct swidapi_ctx;
typedef struct swidapi_ctx swidapi_t;

enum sys_port_direction {
    SYS_PORT_DIRECTION_INT = 0,
    SYS_PORT_DIRECTION_EXT = 1,
    SYS_PORT_DIRECTION_UNMAPPED = 2,
};

enum sys_port_bay {
    SYS_PORT_NOT_BAY = 0,
    SYS_PORT_BAY = 1,
};

// One switch device.  Allocated zeroed; owns its two strings.
typedef struct _devinfo {
    uint32 subsystem_type;
    uint32 slot_id;
    uint32 index_inside_slot;
    uint8 device_max_speed_limit;
    uint8 max_ib_speed_hw_cap;   // register bit-mask form
    uint8 max_ib_speed_sw_limit; // register bit-mask form
    tstring *subsystem_name;     // display name
    tstring *device_name;
} devinfo;

// One physical port: the value of ibports_ht.
typedef struct _ifindexInformation {
    uint32 devid;
    uint8 ibport;            // InfiniBand port number that the local port maps to
    uint8 localport;         // 1 to 64
    uint8 port_direction;    // sys_port_direction
    tbool configured_state;  // what was last written into PAOS: true for up
    uint32 ifindex_neighbor; // far end of an internal link, 0 for none
    uint8 label_port;        // number on the panel
    uint8 bay_port;          // sys_port_bay
    uint8 active_speed;      // speed mask last applied
    lt_dur_ms enable_port_time; // uptime of the last enable, 0 when not enabled
    uint8 assigned_to_swid;  // OVD_NO_SWID for none
} ifindexInformation;

// The user's configuration of a port, as far as known: the value of ifindex_to_config_ht.
// OVD_CONFIG_NOT_SET marks a field that is not set, in mtu too.
typedef struct port_config_parameters {
    uint8 speed;
    uint8 width;
    uint8 op_vls;
    uint16 mtu;
    uint8 enable; // 0 or 1; not a tbool, since it must hold OVD_CONFIG_NOT_SET too
    uint8 fec;
} port_config_parameters_t;

// One virtual port: the value of virtual_ibports_ht.
typedef struct _virtualIfindexInfo {
    uint32 devid;
    uint8 localport;
    uint8 ifindex; // the low byte of the ifindex only
    tbool configured_state;
    uint8 assigned_to_swid[OVD_NUM_SWIDS]; // the SWID's number when assigned, else 255
} virtualIfindexInfo;

// E-key state of a label port: the value of labelports_to_ekey_ht.
typedef struct _ekeyInfo {
    uint8 enable;
    uint32 ifindex;
} ekeyInfo;

// The argument of the per-device walk of ibports_ht.
typedef struct _ret_device_ifindexs {
    tstr_array *ifindex_arr;
    uint32 dev_id;
} ret_device_ifindexs;

// Indexed by device id; null for an unused slot.
extern devinfo *devsinfo[OVD_NUM_DEVICES];
// Indexed by SWID; non-null when this daemon serves that SWID.
extern swidapi_t *swidapi_handles[OVD_NUM_SWIDS];

// All five are keyed by tstrings, with ts_length of the key as key length:
//   ibports_ht             decimal ifindex             -> ifindexInformation
//   maxportspeeds_ht       "<devid> <label port>"      -> one uint8, a speed enumerator
//   ifindex_to_config_ht   decimal ifindex             -> port_config_parameters_t
//   labelports_to_ekey_ht  decimal label port          -> ekeyInfo
//   virtual_ibports_ht     decimal ifindex             -> virtualIfindexInfo
// Each owns copies of the keys and values that are inserted; an insert of an existing key
// frees the old entry and stores the new one.
extern ht_table *ibports_ht;
extern ht_table *maxportspeeds_ht;
extern ht_table *ifindex_to_config_ht;
extern ht_table *labelports_to_ekey_ht;
extern ht_table *virtual_ibports_ht;

// The system's host name, /system/hostname; null until read.  Freed with the tables.
extern tstring *hostname;

// Creates the five tables (a table that exists already is kept).  The first failure ends
// the sequence; the tables made so far stay for ibPortsCacheDeinit.
int ibPortsCacheInit(void);
// Frees the five tables and the host name, nulling the pointers; what is gone already is
// skipped, so a second call does nothing.
int ibPortsCacheDeinit(void);

// Looks the decimal ifindex up in ibports_ht.  *exists is cleared first; a null exists is
// lc_err_unexpected_null.  ret_val_from_ib_ports_ht may be null.
int checkIfPortExists(const tstring *ifindex, ifindexInformation **ret_val_from_ib_ports_ht,
                      tbool *exists);
// The enable of a port's stored configuration (0, 1 or OVD_CONFIG_NOT_SET), by its decimal
// ifindex.  Without an entry: OVD_CONFIG_NOT_SET, and when func is given the warning
// "<func>: ifindex: [...] supposed to be in configuration DB".
uint8 ovd_config_enable(const char *func, const tstring *ifindex);
// Adds every key of ibports_ht to the array, sorted as text ("1024" before "65").
int get_ports_ifindex_arr(tstr_array *ifindex_arr);
// Adds the keys of the ports of ret_data->dev_id to ret_data->ifindex_arr, sorted as text.
int get_device_ports_ifindex_arr(ret_device_ifindexs *ret_data);
// The ifindex of a device's local port: devid shifted left by 6, plus the local port.
int convert_devid_localport_to_ifindex(uint32 devid, uint8 localport, uint32 *ifindex);

// Walkers for ht_foreach over tables keyed by tstrings.  for_each_ifindex adds every key
// to the tstr_array in data; for_each_ifindex_filter_device (ibports_ht only) adds the keys
// whose ifindexInformation has the devid of the ret_device_ifindexs in data.
int for_each_ifindex(const ht_table *ht, const void *key, int32 key_len, void *value,
                     void *data);
int for_each_ifindex_filter_device(const ht_table *ht, const void *key, int32 key_len,
                                   void *value, void *data);

// Sets the six fields to OVD_CONFIG_NOT_SET.
int port_config_init_values(port_config_parameters_t *port_config);

// Set and free functions of the five tables: the set functions copy the tstring key and
// the record, the free functions free both.
int ht_tstring_ifindex_to_info_set_func(const void *key, int32 key_len, const void *value,
                                        void **ret_key, int32 *ret_key_len, void **ret_value);
int ht_tstring_ifindex_to_info_free_func(void **inout_key, void **inout_value, int32 key_len);
int ht_tstring_devid_port_key_to_speed_value_set_func(const void *key, int32 key_len,
                                                      const void *value, void **ret_key,
                                                      int32 *ret_key_len, void **ret_value);
int ht_tstring_devid_port_key_to_speed_value_free_func(void **inout_key, void **inout_value,
                                                       int32 key_len);
int ht_tstring_ifindex_key_to_config_set_func(const void *key, int32 key_len,
                                              const void *value, void **ret_key,
                                              int32 *ret_key_len, void **ret_value);
int ht_tstring_ifindex_key_to_config_free_func(void **inout_key, void **inout_value,
                                               int32 key_len);
int ht_tstring_label_port_key_to_ekey_value_set_func(const void *key, int32 key_len,
                                                     const void *value, void **ret_key,
                                                     int32 *ret_key_len, void **ret_value);
int ht_tstring_label_port_key_to_ekey_value_free_func(void **inout_key, void **inout_value,
                                                      int32 key_len);
int ht_tstring_ifindex_to_virtual_info_set_func(const void *key, int32 key_len,
                                                const void *value, void **ret_key,
                                                int32 *ret_key_len, void **ret_value);
int ht_tstring_ifindex_to_virtual_info_free_func(void **inout_key, void **inout_value,
                                                 int32 key_len);

// ---------------------------------------------------------------------------------------
// The device table.  A device id above OVD_MAX_DEVICE_ID is refused by each of these with
// lc_err_range and the level 3 line "Got device ID %u which exceeds maximum device ID %u".

// A zeroed record.
int ovd_devinfo_new(devinfo **ret_dev);
// Frees the record with its two strings and nulls the pointer; null is fine.
int ovd_devinfo_free(devinfo **inout_dev);
// The range check alone.
int ovd_devsinfo_check_devid(uint32 devid);
// The record of a device, null for an empty slot (no error).
int ovd_devsinfo_get(uint32 devid, devinfo **ret_dev);
// Stores the record in its slot, freeing a record that was there; nulls the caller's
// pointer.  On failure the caller keeps the record.
int ovd_devsinfo_set_takeover(uint32 devid, devinfo **inout_dev);
// Frees the record of a device, clearing the slot; an empty slot is fine.
int ovd_devsinfo_clear(uint32 devid);
// Frees every record, clearing every slot.
int ovd_devsinfo_free_all(void);

// Whether this daemon serves the SWID: in range and with a context.
tbool ovd_swid_is_served(uint32 swid);
