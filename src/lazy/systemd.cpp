// libsystemd's sd-bus and sd-event, opened on first use: by a notification
// posted system-wide, the engine, live connections and the secret agent.
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <cstdarg>

#include "lazy/library.hpp"

namespace {
constinit lazy::Library systemd("libsystemd.so.0");

// The va_list form of a variadic function, for the variadic one of the
// same name to forward to.
template <typename Function>
Function *variant(const char *name) {
  return reinterpret_cast<Function *>(systemd.symbol(name));
}
}  // namespace

#define FORWARD(...) TW_LAZY(systemd, __VA_ARGS__)

// What SD_BUS_VTABLE_START points at. sd-bus reads only whether the pointer
// is set (a vtable of the current layout); the real symbol is there to give
// programs linked against it a versioned dependency.
extern "C" const unsigned sd_bus_object_vtable_format = 242;

// A variadic function forwards to the va_list form sd-bus has beside it.
#define FORWARD_VARIADIC(name, params, last, args)                        \
  extern "C" int name params {                                            \
    static const auto real = variant<decltype(name##v)>(#name "v");      \
    if (!real) return -ENOSYS;                                            \
    va_list ap;                                                           \
    va_start(ap, last);                                                   \
    const int r = real args;                                              \
    va_end(ap);                                                           \
    return r;                                                             \
  }

// clang-format off
FORWARD_VARIADIC(sd_bus_message_append, (sd_bus_message *m, const char *types, ...), types, (m, types, ap))
FORWARD_VARIADIC(sd_bus_message_read, (sd_bus_message *m, const char *types, ...), types, (m, types, ap))
FORWARD_VARIADIC(sd_bus_reply_method_return, (sd_bus_message *call, const char *types, ...), types, (call, types, ap))
FORWARD_VARIADIC(sd_bus_reply_method_errorf, (sd_bus_message *call, const char *name, const char *format, ...), format, (call, name, format, ap))
FORWARD_VARIADIC(sd_bus_emit_signal, (sd_bus *bus, const char *path, const char *interface, const char *member, const char *types, ...), types, (bus, path, interface, member, types, ap))
FORWARD_VARIADIC(sd_bus_call_method_async, (sd_bus *bus, sd_bus_slot **slot, const char *destination, const char *path, const char *interface, const char *member, sd_bus_message_handler_t callback, void *userdata, const char *types, ...), types, (bus, slot, destination, path, interface, member, callback, userdata, types, ap))
FORWARD(int, sd_bus_add_match, (sd_bus *bus, sd_bus_slot **slot, const char *match, sd_bus_message_handler_t callback, void *userdata), (bus, slot, match, callback, userdata), -ENOSYS)
FORWARD(int, sd_bus_add_object_vtable, (sd_bus *bus, sd_bus_slot **slot, const char *path, const char *interface, const sd_bus_vtable *vtable, void *userdata), (bus, slot, path, interface, vtable, userdata), -ENOSYS)
FORWARD(int, sd_bus_attach_event, (sd_bus *bus, sd_event *e, int priority), (bus, e, priority), -ENOSYS)
FORWARD(int, sd_bus_call, (sd_bus *bus, sd_bus_message *m, uint64_t usec, sd_bus_error *ret_error, sd_bus_message **reply), (bus, m, usec, ret_error, reply), -ENOSYS)
FORWARD(sd_bus *, sd_bus_close_unref, (sd_bus *bus), (bus), nullptr)
FORWARD(int, sd_bus_detach_event, (sd_bus *bus), (bus), -ENOSYS)
FORWARD(void, sd_bus_error_free, (sd_bus_error *e), (e), )
FORWARD(int, sd_bus_error_is_set, (const sd_bus_error *e), (e), 0)
FORWARD(sd_bus *, sd_bus_flush_close_unref, (sd_bus *bus), (bus), nullptr)
FORWARD(int, sd_bus_get_n_queued_write, (sd_bus *bus, uint64_t *ret), (bus, ret), -ENOSYS)
FORWARD(int, sd_bus_get_tid, (sd_bus *bus, pid_t *tid), (bus, tid), -ENOSYS)
FORWARD(int, sd_bus_match_signal, (sd_bus *bus, sd_bus_slot **ret, const char *sender, const char *path, const char *interface, const char *member, sd_bus_message_handler_t callback, void *userdata), (bus, ret, sender, path, interface, member, callback, userdata), -ENOSYS)
FORWARD(int, sd_bus_message_close_container, (sd_bus_message *m), (m), -ENOSYS)
FORWARD(int, sd_bus_message_enter_container, (sd_bus_message *m, char type, const char *contents), (m, type, contents), -ENOSYS)
FORWARD(int, sd_bus_message_exit_container, (sd_bus_message *m), (m), -ENOSYS)
FORWARD(const sd_bus_error *, sd_bus_message_get_error, (sd_bus_message *m), (m), nullptr)
FORWARD(const char *, sd_bus_message_get_path, (sd_bus_message *m), (m), nullptr)
FORWARD(const char *, sd_bus_message_get_sender, (sd_bus_message *m), (m), nullptr)
FORWARD(int, sd_bus_message_new_method_call, (sd_bus *bus, sd_bus_message **m, const char *destination, const char *path, const char *interface, const char *member), (bus, m, destination, path, interface, member), -ENOSYS)
FORWARD(int, sd_bus_message_new_method_return, (sd_bus_message *call, sd_bus_message **m), (call, m), -ENOSYS)
FORWARD(int, sd_bus_message_open_container, (sd_bus_message *m, char type, const char *contents), (m, type, contents), -ENOSYS)
FORWARD(int, sd_bus_message_peek_type, (sd_bus_message *m, char *type, const char **contents), (m, type, contents), -ENOSYS)
FORWARD(int, sd_bus_message_skip, (sd_bus_message *m, const char *types), (m, types), -ENOSYS)
FORWARD(sd_bus_message *, sd_bus_message_unref, (sd_bus_message *m), (m), nullptr)
FORWARD(int, sd_bus_new, (sd_bus **ret), (ret), -ENOSYS)
FORWARD(int, sd_bus_process, (sd_bus *bus, sd_bus_message **r), (bus, r), -ENOSYS)
FORWARD(int, sd_bus_send, (sd_bus *bus, sd_bus_message *m, uint64_t *cookie), (bus, m, cookie), -ENOSYS)
FORWARD(int, sd_bus_set_address, (sd_bus *bus, const char *address), (bus, address), -ENOSYS)
FORWARD(int, sd_bus_set_bus_client, (sd_bus *bus, int b), (bus, b), -ENOSYS)
FORWARD(int, sd_bus_set_exit_on_disconnect, (sd_bus *bus, int b), (bus, b), -ENOSYS)
FORWARD(int, sd_bus_set_method_call_timeout, (sd_bus *bus, uint64_t usec), (bus, usec), -ENOSYS)
FORWARD(sd_bus_slot *, sd_bus_slot_unref, (sd_bus_slot *slot), (slot), nullptr)
FORWARD(int, sd_bus_start, (sd_bus *bus), (bus), -ENOSYS)
FORWARD(sd_bus *, sd_bus_unref, (sd_bus *bus), (bus), nullptr)
FORWARD(int, sd_bus_wait, (sd_bus *bus, uint64_t timeout_usec), (bus, timeout_usec), -ENOSYS)
FORWARD(int, sd_event_add_signal, (sd_event *e, sd_event_source **s, int sig, sd_event_signal_handler_t callback, void *userdata), (e, s, sig, callback, userdata), -ENOSYS)
FORWARD(int, sd_event_add_time_relative, (sd_event *e, sd_event_source **s, clockid_t clock, uint64_t usec, uint64_t accuracy, sd_event_time_handler_t callback, void *userdata), (e, s, clock, usec, accuracy, callback, userdata), -ENOSYS)
FORWARD(int, sd_event_exit, (sd_event *e, int code), (e, code), -ENOSYS)
FORWARD(int, sd_event_loop, (sd_event *e), (e), -ENOSYS)
FORWARD(int, sd_event_new, (sd_event **e), (e), -ENOSYS)
FORWARD(sd_event_source *, sd_event_source_unref, (sd_event_source *s), (s), nullptr)
FORWARD(sd_event *, sd_event_unref, (sd_event *e), (e), nullptr)
// clang-format on
