/*
 * A telnet server: the command line of a device, served to every client at
 * once from one poll loop, each client a session of its own.
 *
 *   quorvel-telnetd [port]        (default 2323, on 127.0.0.1)
 *
 * Each client gets character mode (the server echoes, no go-ahead) and
 * tells its window size (NAWS) before its prompt is drawn. The telnet protocol is the server's
 * business: it strips the client's commands and hands the editor the plain
 * bytes through a pipe, while the editor writes straight to the socket.
 * Commands: "who", "size", "quit"; anything else is echoed back. A client
 * that connects or leaves is announced above every other client's prompt.
 */
#include <quorvel.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum { IAC = 255, DONT = 254, DO = 253, WONT = 252, WILL = 251, SB = 250, SE = 240 };
enum { ECHO_OPT = 1, SGA = 3, NAWS = 31 };
enum { MAX_CLIENTS = 64 };

struct client {
    int sock, keys[2]; /* keys: the plain bytes, for the editor to read */
    int id, state, cr, cols, rows;
    int started;   /* the edit is drawn once the client told its size */
    struct timespec came; /* or has had long enough to */
    unsigned char sb[16];
    size_t sblen;
    term_session *session;
};

static struct client clients[MAX_CLIENTS];
static int nclients, next_id = 1;

/* A line above every other client's prompt. */
static void announce(const struct client *from, const char *text) {
    int i;
    for (i = 0; i < nclients; i++) {
        if (&clients[i] == from) continue;
        term_use(clients[i].session);
        term_print(text);
    }
    term_use(NULL);
}

static long since(const struct timespec *t) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (now.tv_sec - t->tv_sec) * 1000 + (now.tv_nsec - t->tv_nsec) / 1000000;
}

static void start(struct client *c) {
    char prompt[32];
    c->started = 1;
    snprintf(prompt, sizeof prompt, "\x1b[32mclient %d>\x1b[0m ", c->id);
    term_use(c->session);
    term_editStart(TERM_EDIT_UTF8, 0, prompt);
    term_use(NULL);
}

static void leave(int i) {
    char text[48];
    struct client *c = &clients[i];
    term_close(c->session);
    close(c->keys[0]);
    close(c->keys[1]);
    close(c->sock);
    snprintf(text, sizeof text, "[client %d left]", c->id);
    clients[i] = clients[--nclients];
    announce(NULL, text);
}

static void welcome(int sock) {
    static const unsigned char offer[] = {IAC, WILL, ECHO_OPT, IAC, WILL, SGA, IAC, DO, NAWS};
    term_session_options o;
    struct client *c;
    char text[48];
    if (nclients == MAX_CLIENTS) {
        close(sock);
        return;
    }
    c = &clients[nclients];
    memset(c, 0, sizeof *c);
    c->sock = sock;
    if (pipe(c->keys) != 0) {
        close(sock);
        return;
    }
    memset(&o, 0, sizeof o);
    o.size = sizeof o;
    o.stream = 1;
    c->session = term_open(c->keys[0], sock, &o);
    if (!c->session) {
        close(c->keys[0]);
        close(c->keys[1]);
        close(sock);
        return;
    }
    c->id = next_id++;
    clock_gettime(CLOCK_MONOTONIC, &c->came);
    nclients++;
    if (write(sock, offer, sizeof offer) != (ssize_t)sizeof offer) return;
    snprintf(text, sizeof text, "[client %d connected]", c->id);
    announce(c, text);
}

/* The client's bytes without the telnet protocol; a window size told. */
static void take(struct client *c, const unsigned char *in, size_t n) {
    unsigned char out[4096];
    size_t i, k = 0;
    for (i = 0; i < n; i++) {
        unsigned char b = in[i];
        switch (c->state) {
        case 0:
            if (b == IAC) c->state = 1;
            else if (!(c->cr && (b == 0 || b == '\n'))) out[k++] = b; /* Return is CR NUL or CR LF */
            c->cr = b == '\r';
            break;
        case 1: /* after IAC */
            c->state = b == SB ? 3 : (b >= WILL && b <= DONT) ? 2 : 0;
            if (b == IAC) out[k++] = b;
            c->sblen = 0;
            break;
        case 2: c->state = 0; break; /* the option of WILL, WONT, DO, DONT */
        case 3: /* a subnegotiation, up to IAC SE */
            if (b == IAC) c->state = 4;
            else if (c->sblen < sizeof c->sb) c->sb[c->sblen++] = b;
            break;
        default:
            c->state = b == SE ? 0 : 3;
            if (b == SE && c->sblen == 5 && c->sb[0] == NAWS) {
                c->cols = c->sb[1] << 8 | c->sb[2];
                c->rows = c->sb[3] << 8 | c->sb[4];
                term_setSize(c->session, c->cols, c->rows);
                if (!c->started) start(c);
            }
        }
    }
    if (k > 0 && write(c->keys[1], out, k) != (ssize_t)k) return;
}

/* A line a client entered: 0 when the client leaves. */
static int run(struct client *c, const char *line) {
    char text[512];
    int i, n = 0;
    if (strcmp(line, "quit") == 0) return 0;
    if (strcmp(line, "who") == 0) {
        for (i = 0; i < nclients; i++)
            n += snprintf(text + n, sizeof text - (size_t)n, "%sclient %d", i ? ", " : "", clients[i].id);
    } else if (strcmp(line, "size") == 0) {
        snprintf(text, sizeof text, "%d columns, %d rows", c->cols, c->rows);
    } else {
        snprintf(text, sizeof text, "=> %s", line);
    }
    term_use(c->session);
    term_print(text);
    term_use(NULL);
    return 1;
}

int main(int argc, char **argv) {
    struct sockaddr_in at;
    int one = 1, server = socket(AF_INET, SOCK_STREAM, 0);
    const unsigned needs = TERM_FEATURE_SESSIONS | TERM_FEATURE_EVENT_LOOP;
    if ((term_features() & needs) != needs) {
        fprintf(stderr, "quorvel-telnetd: this build of the library has no sessions or event loop\n");
        return 1;
    }
    signal(SIGPIPE, SIG_IGN); /* a client that goes away is noticed on reading */
    memset(&at, 0, sizeof at);
    at.sin_family = AF_INET;
    at.sin_port = htons((unsigned short)(argc > 1 ? atoi(argv[1]) : 2323));
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (server < 0 || bind(server, (struct sockaddr *)&at, sizeof at) != 0 || listen(server, 8) != 0) {
        perror("quorvel-telnetd");
        return 1;
    }
    printf("listening on 127.0.0.1:%d\n", ntohs(at.sin_port));
    fflush(stdout);
    for (;;) {
        struct pollfd p[1 + 2 * MAX_CLIENTS];
        int i, n = nclients;
        p[0].fd = server;
        p[0].events = POLLIN;
        for (i = 0; i < n; i++) {
            term_use(clients[i].session);
            p[1 + 2 * i].fd = clients[i].sock;
            p[2 + 2 * i].fd = term_editFd();
            p[1 + 2 * i].events = p[2 + 2 * i].events = POLLIN;
        }
        term_use(NULL);
        poll(p, (nfds_t)(1 + 2 * n), 50);
        for (i = n - 1; i >= 0; i--) {
            struct client *c = &clients[i];
            char *line = NULL;
            if (p[1 + 2 * i].revents & (POLLIN | POLLHUP)) {
                unsigned char buf[1024];
                ssize_t got = read(c->sock, buf, sizeof buf);
                if (got <= 0) {
                    leave(i);
                    continue;
                }
                take(c, buf, (size_t)got);
            }
            /* A client that tells no size gets the prompt at 80 by 24. */
            if (!c->started && since(&c->came) >= 500) start(c);
            if (!c->started) continue;
            term_use(c->session);
            if (term_editFeed(&line) == 1) {
                int stays = line && term_getStatus() != ST_EOF && run(c, line);
                term_free(line);
                if (stays) start(c);
                else leave(i);
            }
            term_use(NULL);
        }
        if (p[0].revents & POLLIN) {
            int sock = accept(server, NULL, NULL);
            if (sock >= 0) welcome(sock);
        }
    }
}
