// Route checks and the smaller hardware operations beside them: the walk along the linear
// forwarding tables that tells whether traffic for a LID reaches this switch, the vendor
// datagram that sets the port LEDs, the module-changed bitmap of PMPC, and the board
// information query.
#pragma once

#include "swidapi.h"

// The result of a route check, as it is reported to the user.
typedef enum lid_route_check_status {
    ROUTE_OK = 0,                         // the walk ended at a switch port 0
    ROUTE_ERROR = 1,                      // no path could be formed, or a port not read
    ROUTE_FT_ERROR = 2,                   // the forwarding table block could not be read
    ROUTE_LID_NOT_EXIST_IN_FD_ERROR = 3,  // the table holds no port for the LID
    ROUTE_LID_TO_DR_TO_LONG_ERROR = 4,    // three hops were not enough
    ROUTE_LID_PORT_DOWN_ERROR = 5,        // the exit port is not Active
} lid_route_check_status;

// The number of hops the route walk follows at most.
#define SA_ROUTE_MAX_HOPS 3
// The time-out of one forwarding table query, in milliseconds.
#define SA_ROUTE_LFT_TIMEOUT_MS 100

// The text of a route check result; "UNKNOWN" for any other value.
const char *lidroute_err2str(int status);

// Follows the forwarding tables from this switch, at most three hops, for `lid`: a
// lid_route_check_status.
int check_lid_route(swidapi_t *sa_ctx, u_int16_t lid);
int sa_check_lid_route(swidapi_t *sa_ctx, u_int16_t lid);

// A directed-route port id of the first `hop` entries of dr_path (stopping at the first
// -1): "0,17,5" and so on.  -1 when the path text is refused, else 0.
int set_dr_path_2(ib_portid_t *portid, int *dr_path, int hop);

// LEDs.
typedef enum sa_port_led_state {
    LED_HW_CONTROL = 0,
    LED_ON = 1,
    LED_OFF = 2,
    LED_FLASHING = 3,
} sa_port_led_state_t;

#define SA_LED_DATA_LEN 64

typedef struct _sa_led_control {
    uint8_t attrib;
    uint8_t data[SA_LED_DATA_LEN];  // a byte per port position, the state in both nibbles
    ib_dr_path_t path;
} sa_led_control_t;

// The vendor datagram that sets the LEDs of the device at the end of leds->path, sent by
// its LID.  Path failures give their sysapi_status, a missing LID lc_err_io_closed.
int sa_set_port_led(swidapi_t *sa_ctx, sa_led_control_t *leds);

// The vendor class, attribute and layout of the LED datagram.
#define SA_LED_MGMT_CLASS 10
#define SA_LED_ATTR_ID 48
#define SA_LED_BLOCK_LEN 304
#define SA_LED_DATA_OFFSET_IN_BLOCK 8
#define SA_LED_MAD_DATA_OFFSET 24
#define SA_LED_MAD_DATA_SIZE 232
#define SA_LED_QKEY 0x80010000u

// Modules whose state changed, from PMPC.  The register counts from its last word:
// module m is bit m % 32 of word 7 - m / 32; the uint64 forms hold module m at bit m.
int sa_get_pmpc(vqd_swid_t swid, uint32 dev_id, struct ku_pmpc_reg *pmpc_reg_data);
int sa_set_pmpc(vqd_swid_t swid, uint32 dev_id, uint32_t *module_state_updated_bitmap);
int sa_get_changed_modules(uint32 dev_id, int num_of_modules, uint64 *changed_modules);
int sa_set_changed_modules(uint32 dev_id, int num_of_modules, uint64 changed_modules);

// The board's identity: vendor id, board id text and device.
int get_board_info(vqd_dev_id_t dev_id, board_info_t *board_info);
