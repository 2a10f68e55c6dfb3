/*
 * Finds a service on the local network by name, and prints its host and addresses.
 *
 *   example_find "Ingest 1" _mcc-feed._tcp 5000
 *
 * The arguments are the service's name and type, and the longest search in milliseconds.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

static void print_addresses(KIVCS2BonjourBrowser *browser)
{
    KIVCS2BonjourAddress *address = NULL;
    kivCS2Bonjour_getAddressesList(browser, NULL, &address); /* a service was found, so this succeeds */
    while (address != NULL)
    {
        char text[INET_ADDRSTRLEN];
        struct in_addr ipv4;
        ipv4.s_addr = address->m_address;
        printf("  %s:%u\n", inet_ntop(AF_INET, &ipv4, text, sizeof text), address->m_port);
        address = (KIVCS2BonjourAddress *)address->m_elem.m_next;
    }
}

int main(int argc, char **argv)
{
    KIVCS2BonjourBrowser browser;
    KIVCS2Status status;

    if (argc < 3)
    {
        fputs("usage: example_find name type [milliseconds]\n", stderr);
        return 2;
    }
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */

    status = kivCS2Bonjour_initBrowserData(&browser);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Bonjour_findFirstService(&browser, "", argv[2], argv[1],
                                                argc > 3 ? (uint32_t)strtoul(argv[3], NULL, 10) : 5000);
    if (KIVCS2_SUCCEEDED(status))
    {
        const char *host = NULL;
        kivCS2Bonjour_getHostname(&browser, NULL, &host);
        printf("%s is at %s\n", argv[1], host);
        print_addresses(&browser);
    }
    else if (status == KIVCS2STATUS_TIMEOUT_ERR)
        fprintf(stderr, "find: no program offers \"%s\"\n", argv[1]);
    else
        fprintf(stderr, "find: %s (status 0x%08x)\n", argv[1], status);
    kivCS2Bonjour_diposeBrowserData(&browser); /* also if it could not be made */
    return KIVCS2_FAILED(status);
}
