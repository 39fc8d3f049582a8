// The alarm client: a connection, a sender's thread, and two signal handlers.
//
// Threads: network_init and network_exit hold `life` from begin to end, the connection and the join
// included; the sender never takes it. What others look at meanwhile is under `lock`, which is never held
// across anything that blocks. The socket is written before the sender starts and after it was joined.
#include "network_alarm.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "naro_util.h"
#include "queues.h"

namespace
{

const char tag[] = {'I', 'M', 'A', 'G', 'E'};
const size_t buffer_alignment = 64;
// The broken-pipe handler arms itself again for this one. Deliberate: kept as it has always been.
const int REARMED_SIGNAL = 32;

struct {
    pthread_mutex_t life; // one start or stop at a time
    int socket;           // 0: none
    pthread_t thread;

    pthread_mutex_t lock; // protects the rest
    bool inited;
    bool sending; // the sender has started and is not about to end: it can be sent a signal
    uint64_t last_sent;
    char server[INET_ADDRSTRLEN]; // empty: none
} state = {PTHREAD_MUTEX_INITIALIZER, 0, {}, PTHREAD_MUTEX_INITIALIZER, false, false, 0, ""};

// ---- Signals --------------------------------------------------------------------------------------------

// Safe in a handler, unlike printf. A line that is not taken is lost.
void print_in_handler(const char *text, size_t length)
{
    if (write(STDOUT_FILENO, text, length) < 0)
        return;
}

void on_broken_pipe(int)
{
    static const char line[] = "server is disconnect....\r\n";
    const int kept = errno;
    print_in_handler(line, sizeof line - 1);
    signal(REARMED_SIGNAL, on_broken_pipe);
    errno = kept;
}

void on_alarm(int)
{
    static const char line[] = "just for interrupt connect handler....\r\n";
    const int kept = errno;
    print_in_handler(line, sizeof line - 1);
    errno = kept;
}

void install_handlers(void)
{
    signal(SIGPIPE, on_broken_pipe);
    // Without SA_RESTART, which would put the interrupted call back to waiting.
    struct sigaction action = {};
    action.sa_handler = on_alarm;
    action.sa_flags = SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
}

// ---- The sender -----------------------------------------------------------------------------------------

void say_quit(void)
{
    printf("[%s] quit\r\n", "network_task");
}

void send_frame(uint8_t *buffer, const meta_list_data *head)
{
    const int result = tcp_client_tx(state.socket, buffer, NETWORK_TX_HEAD_BYTES + size_t{head->size});
    if (result == TCP_CLIENT_BROKEN_PIPE)
        return;
    // Other failures count as sent, as they always have.
    pthread_mutex_lock(&state.lock);
    state.last_sent = head->timestamp;
    pthread_mutex_unlock(&state.lock);
}

// Sends elements until the quit element (true), or until the queue fails to give one.
bool send_elements(uint8_t *buffer)
{
    memcpy(buffer, tag, sizeof tag);
    for (;;) {
        queue_list_elem *elem = nullptr;
        if (network_queue_list_data_elem_take(&elem) != 0) {
            printf("yuv queue dequeue fail, quit\r\n");
            return false;
        }
        const uint8_t *slot = reinterpret_cast<const uint8_t *>(meta_list_data_get(elem));
        meta_list_data head; // by copy: a slot of an odd size is not aligned
        memcpy(&head, slot, sizeof head);
        if (head.type == QUEUE_ELEMENT_QUIT) {
            say_quit();
            network_queue_list_data_elem_give(elem);
            return true;
        }
        const bool fits = head.size <= NETWORK_PAYLOAD_MAX_BYTES;
        if (fits) {
            const uint32_t length = htonl(head.size);
            memcpy(buffer + sizeof tag, &length, sizeof length);
            naro_copy(buffer + NETWORK_TX_HEAD_BYTES, slot + sizeof head, head.size);
        }
        network_queue_list_data_elem_give(elem);
        if (fits)
            send_frame(buffer, &head);
        else
            log_err("[%s] a payload of %u bytes is refused: a frame holds %d\n", "network_task", head.size,
                    NETWORK_PAYLOAD_MAX_BYTES);
    }
}

// Ends the sender and the connection; `life` held. -1 when the sender cannot be told.
int stop(void)
{
    static const char quit[] = "quit";
    static_assert(sizeof quit == NETWORK_QUIT_BYTES, "what the queue's elements must hold");
    if (network_queue_list_enqueue(quit, sizeof quit, 0, 0, QUEUE_ELEMENT_QUIT, 0) != 0) {
        printf("network_queue_list_enqueue fail\r\n");
        return -1;
    }
    errno = pthread_join(state.thread, nullptr);
    if (errno != 0)
        perror(
            "pthread_join face_det_tsk fail\r\n"); // goes on all the same: there is nothing else to be done
    if (state.socket != 0)
        close(state.socket);
    state.socket = 0;
    pthread_mutex_lock(&state.lock);
    state.inited = false;
    pthread_mutex_unlock(&state.lock);
    return 0;
}

// Connects and starts the sender; `life` held, nothing started.
int start(void)
{
    char server[sizeof state.server];
    pthread_mutex_lock(&state.lock);
    memcpy(server, state.server, sizeof server);
    pthread_mutex_unlock(&state.lock);
    const int fd = tcp_client_setup(server[0] ? server : nullptr, NETWORK_SERVER_PORT);
    if (fd < 0) {
        printf("[%s] tcp_client_setup fail\r\n", "network_init");
        return -1;
    }
    install_handlers();
    state.socket = fd;
    pthread_mutex_lock(&state.lock);
    state.last_sent = 0;
    // Under the lock, so that nobody finds a sender without its number.
    state.inited = pthread_create(&state.thread, nullptr, network_task, nullptr) == 0;
    state.sending = state.inited;
    const bool started = state.inited;
    pthread_mutex_unlock(&state.lock);
    if (started)
        return 0;
    printf("create network_task fail\r\n");
    close(fd);
    state.socket = 0;
    return -1;
}

} // namespace

void *network_task(void *)
{
    prctl(PR_SET_NAME, "network_task");
    uint8_t *buffer = static_cast<uint8_t *>(naro_malloc(NETWORK_TX_BYTES, buffer_alignment));
    bool told_to_quit = false;
    if (buffer)
        told_to_quit = send_elements(buffer);
    else
        printf("tx buf malloc fail\r\n");
    naro_free(buffer);
    if (told_to_quit)
        say_quit(); // a second time: whoever reads the output knows by it that the buffer is free
    pthread_mutex_lock(&state.lock);
    state.sending = false;
    pthread_mutex_unlock(&state.lock);
    return nullptr;
}

int tcp_client_setup(const char *address, int port)
{
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    if (!address || port <= 0 || port > UINT16_MAX || inet_pton(AF_INET, address, &server.sin_addr) != 1) {
        printf("invalid param server_ip = %s, server_port = %d\r\n", address ? address : "(null)", port);
        return -1;
    }
    server.sin_port = htons(static_cast<uint16_t>(port));
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        perror("socket");
        return -1;
    }
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) {
        perror("bind");
        close(fd);
        return -1;
    }
    printf("connecting server...\r\n");
    if (connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof server) != 0) {
        perror("connect");
        close(fd);
        return -1;
    }
    printf("[%s] connect server succeed!!!\r\n", __func__);
    return fd;
}

int tcp_client_tx(int socket, const void *buffer, size_t length)
{
    const ssize_t sent = write(socket, buffer, length);
    if (sent >= 0)
        return static_cast<int>(sent);
    const int error = errno;
    perror("tcp_client_tx\r\n");
    return error == EPIPE ? TCP_CLIENT_BROKEN_PIPE : -1;
}

int network_server_set(const char *address)
{
    in_addr parsed;
    if (!address || inet_pton(AF_INET, address, &parsed) != 1) {
        log_err("[%s] no IPv4 address: \"%s\"; the old one stays\n", __func__, address ? address : "(null)");
        return -1;
    }
    pthread_mutex_lock(&state.lock);
    // As the library writes it, which fits and ends.
    inet_ntop(AF_INET, &parsed, state.server, sizeof state.server);
    pthread_mutex_unlock(&state.lock);
    return 0;
}

int network_init(void)
{
    pthread_mutex_lock(&state.life);
    int result = -1;
    if (network_is_inited())
        printf("[%s] already inited\r\n", __func__);
    else
        result = start();
    pthread_mutex_unlock(&state.life);
    return result;
}

int network_exit(void)
{
    pthread_mutex_lock(&state.life);
    int result = 0;
    if (network_is_inited())
        result = stop();
    else
        printf("network already destroied\r\n");
    printf("___[%s]___ finished\r\n", __func__);
    pthread_mutex_unlock(&state.life);
    return result;
}

int network_alarm_send(void)
{
    pthread_mutex_lock(&state.lock);
    if (state.sending)
        pthread_kill(state.thread, SIGALRM);
    pthread_mutex_unlock(&state.lock);
    return 0;
}

int network_is_inited(void)
{
    pthread_mutex_lock(&state.lock);
    const int inited = state.inited ? 1 : 0;
    pthread_mutex_unlock(&state.lock);
    return inited;
}

uint64_t network_last_sent(void)
{
    pthread_mutex_lock(&state.lock);
    const uint64_t timestamp = state.last_sent;
    pthread_mutex_unlock(&state.lock);
    return timestamp;
}
