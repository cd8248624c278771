// The /ib/actions/... commands: the reset of a port's counters, the LED test of all
// ports, and the print actions, which write the daemon's tables to the system log at
// level 5 and answer with one line.  Every handler sends its own response.
#pragma once

#include "bnode.h"
#include "bnode_proto.h"
#include "gcl.h"
#include "libevent_wrapper.h"
#include "sa_route.h"

// The LED test: how long the LEDs stay on, its timer and whether it runs.
#define OVD_LED_TEST_MS 10000
extern lew_event *g_led_timer;
extern tbool g_led_timer_active;

// Where the port manager publishes the panel position of each external port.
#define OVD_PANEL_MAP_NODE "/portd/state/map/cable-externalports/switch/infiniband-default"

typedef int (*ovd_action_handler)(gcl_session *sess, const bn_binding_array *bindings,
                                  const bn_request *action_request);

int handle_reset_port_counters_action(gcl_session *sess, const bn_binding_array *bindings,
                                      const bn_request *action_request);
int handle_led_test_port_action(gcl_session *sess, const bn_binding_array *bindings,
                                const bn_request *action_request);

// Sets the LEDs of every external port of the panel to `state`.
int ovd_all_port_leds(sa_port_led_state_t state);
// The end of the LED test: the LEDs go back to the hardware.
int ovd_led_to(int fd, short event_type, void *data, lew_context *context);

// The print actions.
int handle_direct_route_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                     const bn_request *action_request);
int handle_ifindexs_hash_table_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                            const bn_request *action_request);
int handle_device_ifindex_to_config_print_action(gcl_session *sess,
                                                 const bn_binding_array *bindings,
                                                 const bn_request *action_request);
int handle_maxportspeed_hash_table_print_action(gcl_session *sess,
                                                const bn_binding_array *bindings,
                                                const bn_request *action_request);
int handle_device_info_table_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                          const bn_request *action_request);
int handle_ekey_table_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                   const bn_request *action_request);
int handle_virtual_ifindexs_hash_table_print_action(gcl_session *sess,
                                                    const bn_binding_array *bindings,
                                                    const bn_request *action_request);

// ht_foreach walkers of the print actions.
int print_config_hash_entry(const ht_table *ht, const void *key, int32 key_len, void *value,
                            void *data);
int print_ekey_hash_entry(const ht_table *ht, const void *key, int32 key_len, void *value,
                          void *data);
int print_virtual_ib_hash_entry(const ht_table *ht, const void *key, int32 key_len, void *value,
                                void *data);

// Sends the answer of an action: code and message (null for none).
int ovd_action_respond(gcl_session *sess, const bn_request *action_request, uint32 resp_code,
                       const char *resp_msg);
