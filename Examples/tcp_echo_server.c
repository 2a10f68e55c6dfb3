/*
 * The server of a TCP echo pair: takes connections one after the other and sends back what comes, until
 * a client sends an EOT byte or so many connections were served.
 *
 *   tcp_echo_server <port> [connections]     port 0 lets the system choose; it is printed
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "tcp_echo_server: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* A send may take a part only. */
static KIVCS2Status sendAll(KIVCS2Socket *client, const char *bytes, uint32_t size)
{
    while (size > 0)
    {
        uint32_t sent = 0;
        const KIVCS2Status status = kivCS2Socket_send(client, bytes, size, &sent);
        if (KIVCS2_FAILED(status))
            return status;
        bytes += sent;
        size -= sent;
    }
    return KIVCS2STATUS_OK;
}

int main(int argc, char **argv)
{
    KIVCS2Socket *server = NULL;
    KIVCS2Status status;
    int left = argc > 2 ? (int)strtol(argv[2], NULL, 10) : -1;

    if (argc < 2)
        return fail("which port?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2Socket_createServer(&server, (int)strtol(argv[1], NULL, 10), 16,
                                       KIVCS2SocketOption_ReuseAddress | KIVCS2SocketOption_BindNow);
    if (KIVCS2_FAILED(status))
        return fail("no server on this port", status);
    printf("port %u\n", ntohs(server->m_addr.sin_port));
    fflush(stdout);

    while (left != 0)
    {
        KIVCS2Socket *client = NULL;
        char bytes[4096];
        uint32_t count = 0;

        status = kivCS2Socket_accept(server, 60000, &client);
        if (KIVCS2_FAILED(status))
            break; /* nobody came for a minute, or something is wrong */
        while (KIVCS2_SUCCEEDED(kivCS2Socket_receive(client, bytes, sizeof bytes, false, &count)) &&
               KIVCS2_SUCCEEDED(sendAll(client, bytes, count)))
        {
        }
        printf("served %s\n", client->m_host);
        kivCS2Socket_free(client);
        --left;
    }
    kivCS2Socket_free(server);
    return left > 0 ? fail("no more connections", status) : 0;
}
