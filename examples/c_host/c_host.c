/*
 * A host in C99: runs a query, submits feedback on the answer, and withdraws it.
 *
 *     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... c_host GATEWAY-URL NAME
 */

#include <Veltra/veltra_c.h>

#include <stdio.h>
#include <stdlib.h>

/* The control carries each call's time limit, and reports how the call ended. */
static int succeeded(const char* what, veltra_outcome outcome, const veltra_call* call) {
    if (outcome == VELTRA_SUCCEEDED) return 1;
    fprintf(stderr, "%s: %s: %s %s%s\n", what, veltra_outcome_name(outcome),
            veltra_call_detail(call), veltra_call_gateway_message(call),
            veltra_call_retryable(call) ? " (try again later)" : "");
    return 0;
}

static int ask(const char* name, veltra_call* call) {
    char* answer = NULL;
    veltra_outcome outcome = VELTRA_FAILED;
    veltra_query* const query = veltra_query_new("greeting");
    /* Plain texts, quotes included: the library escapes what a request needs escaped. */
    if (veltra_query_set_value(query, "name", name) == VELTRA_SUCCEEDED &&
        veltra_query_set_value(query, "place", "the \"library\"") == VELTRA_SUCCEEDED) {
        outcome = veltra_query_run(query, &answer, NULL, call);
    }
    veltra_query_free(query);
    if (!succeeded("query", outcome, call)) return 0;
    puts(answer);
    veltra_free(answer);
    return 1;
}

static int judge(const char* trace_id, veltra_call* call) {
    char* id = NULL;
    int done = 0;
    veltra_feedback* const feedback = veltra_feedback_new(trace_id);
    veltra_feedback_set_satisfaction(feedback, 2); /* the gateway's own number */
    veltra_feedback_set_comments(feedback, "not what \"I\" asked");
    done = succeeded("feedback", veltra_feedback_submit(feedback, &id, call), call) &&
           succeeded("withdrawal", veltra_feedback_withdraw(id, call), call);
    veltra_free(id);
    veltra_feedback_free(feedback);
    return done;
}

int main(int argc, char** argv) {
    const veltra_key_pair pair = {getenv("VELTRA_APP_KEY"), getenv("VELTRA_SECRET_KEY")};
    veltra_call* call = NULL;
    int done = 0;
    if (argc != 3 || pair.app_key == NULL || pair.secret_key == NULL) {
        fputs("usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... c_host GATEWAY-URL NAME\n", stderr);
        return 2;
    }
    call = veltra_call_new();
    veltra_call_set_time_limit(call, 10000); /* of each call, in milliseconds */
    veltra_enable();
    done = succeeded("domain", veltra_set_domain(argv[1], call), call) &&
           succeeded("login", veltra_login(&pair, 1, "5.1.0", call), call) && ask(argv[2], call) &&
           judge(veltra_call_trace_id(call), call); /* the id of the query, which was the last call */
    puts(done ? "withdrawn" : "failed");

    /* A host with more threads calls veltra_cancel_all and joins them here. */
    veltra_disable();
    veltra_logout();
    veltra_call_free(call);
    return done ? 0 : 1;
}
