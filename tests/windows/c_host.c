/*
 * A host in C, built by another compiler than the DLL and without a run-time library of C++:
 *
 *     c_host PLAIN-URL TLS-URL STALLING-URL CA-FILE
 *
 * Linked against the import library or, with BY_NAME, not at all. Ends with 0 when all went well.
 */

#include <Veltra/veltra_c.h>

#include <stdio.h>
#include <string.h>
#include <windows.h>

#ifdef BY_NAME
static HMODULE library;
#define CALL(name) ((__typeof__(name)*)(void (*)(void))GetProcAddress(library, #name))
#else
#define CALL(name) name
#endif

static int failed = 0;

static void expect(int holds, const char* what) {
    if (holds) return;
    printf("not so: %s\n", what);
    failed = 1;
}
#define EXPECT(condition) expect(condition, #condition)

static veltra_call* stalled_call;

static DWORD WINAPI cancel_soon(void* unused) {
    (void)unused;
    Sleep(200);
    CALL(veltra_call_cancel)(stalled_call);
    return 0;
}

static void walk(const char* url, const char* ca_file) {
    const veltra_key_pair pair = {"good", "secret"};
    veltra_http_options options = {0};
    veltra_call* const call = CALL(veltra_call_new)();
    veltra_query* const query = CALL(veltra_query_new)("greeting");
    char* text = NULL;

    options.size = sizeof options;
    options.ca_file = ca_file;
    EXPECT(CALL(veltra_set_http_options)(&options) == VELTRA_SUCCEEDED);
    CALL(veltra_enable)();
    EXPECT(CALL(veltra_set_domain)(url, call) == VELTRA_SUCCEEDED);
    EXPECT(CALL(veltra_login)(&pair, 1, "1.0", call) == VELTRA_SUCCEEDED);
    EXPECT(CALL(veltra_query_set_value)(query, "name", "A \"quoted\" name") == VELTRA_SUCCEEDED);
    EXPECT(CALL(veltra_query_set_value)(query, "place", "C:\\") == VELTRA_SUCCEEDED);
    EXPECT(CALL(veltra_query_run)(query, &text, NULL, call) == VELTRA_SUCCEEDED);
    EXPECT(text != NULL && strcmp(text, "Hello A \"quoted\" name, welcome to C:\\.") == 0);
    CALL(veltra_free)(text);
    text = NULL;

    CALL(veltra_logout)();
    EXPECT(CALL(veltra_query_run)(query, &text, NULL, call) == VELTRA_NOT_USABLE && text == NULL);
    CALL(veltra_query_free)(query);
    CALL(veltra_call_free)(call);
}

int main(int argc, char** argv) {
    HANDLE thread = NULL;
    if (argc != 5) return 2;
#ifdef BY_NAME
    library = LoadLibraryA("Veltra.dll");
#endif
    walk(argv[1], NULL);
    walk(argv[2], argv[4]);

    stalled_call = CALL(veltra_call_new)();
    thread = CreateThread(NULL, 0, cancel_soon, NULL, 0, NULL);
    EXPECT(CALL(veltra_probe)(argv[3], stalled_call) == VELTRA_CANCELLED);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    CALL(veltra_call_free)(stalled_call);
    CALL(veltra_disable)();
    return failed;
}
