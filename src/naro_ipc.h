// The command channel to the media server: one connection, whole messages, one lock.
#ifndef NARO_IPC_H
#define NARO_IPC_H

#include <stddef.h>

#include "naro_ipc_wire.h"

int naro_ipc_server_connect(void);
int naro_ipc_server_disconnect(void);
int naro_ipc_cmd_snd(const void *buf, size_t len);
int naro_ipc_cmd_rcv(void *buf, size_t len);
int naro_ipc_lock(void);
int naro_ipc_unlock(void);

#endif
