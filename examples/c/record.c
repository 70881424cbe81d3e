/* An asynchronous recorder with its own event loop. The library's worker thread does all file work,
 * and this thread receives its reports.
 *
 *     c_record [DIRECTORY]
 */
#include <cachefile_c.h>
#include <stdio.h>
#include <string.h>

enum { RECORD_ID = 4, PIECES = 50, PIECE_SIZE = 1920, TICK_MILLISECONDS = 5 };

static const char FILE_NAME[] = "samples.raw";

static int succeeded(const char* step, int32_t result) {
    if (result == CACHEFILE_OK) return 1;
    fprintf(stderr, "c_record: %s: %s (%s)\n", step, cachefile_result_text(result),
            cachefile_result_name(result));
    return 0;
}

/* The state of the recording, which the callback receives as its user pointer. */
struct reports {
    int opened;
    int failed;
};

/* Receives the result of every open, and of a close or a write only if it failed. Runs on this
 * thread, inside cachefile_caller_wait_and_run or cachefile_shutdown. */
static void on_status(void* user, int32_t operation, int32_t result) {
    struct reports* reports = user;
    const char* step = operation == CACHEFILE_OP_OPEN ? "open" : "write or close";
    if (operation == CACHEFILE_OP_OPEN) reports->opened = 1;
    if (!succeeded(step, result)) reports->failed = 1;
}

/* The event loop: writes one piece at each tick, and runs callbacks between the ticks. */
static int record_pieces(cachefile_writer* writer, uint32_t file, const struct reports* reports) {
    unsigned char piece[PIECE_SIZE];
    int number;
    for (number = 0; number < PIECES; ++number) {
        if (!succeeded("run", cachefile_caller_wait_and_run(TICK_MILLISECONDS, NULL))) return 0;
        if (reports->failed) return 0;
        memset(piece, number, sizeof piece); /* the data that a microphone would deliver */
        /* The piece is copied. The file need not be open yet: operations run in order. */
        if (!succeeded("write", cachefile_writer_append(writer, file, piece, sizeof piece)))
            return 0;
    }
    return succeeded("close", cachefile_writer_close(writer, file));
}

static int record(const char* directory, struct reports* reports) {
    cachefile_callbacks callbacks = CACHEFILE_CALLBACKS_INIT;
    cachefile_writer* writer = NULL;
    uint32_t file = 0;
    int recorded;

    callbacks.user = reports;
    callbacks.on_status = on_status;
    if (!succeeded("directory", cachefile_set_home_dir(directory)) ||
        !succeeded("create", cachefile_writer_create(RECORD_ID, CACHEFILE_ASYNC, &callbacks,
                                                     &writer)))
        return 0;
    /* 0 means that the open was queued. on_status receives its result. */
    recorded = succeeded("open", cachefile_writer_open(writer, FILE_NAME, &file)) &&
               record_pieces(writer, file, reports);
    /* The shutdown comes before the destroy, so that on_status receives even the last report. */
    cachefile_shutdown();
    cachefile_writer_destroy(writer);
    return recorded && reports->opened && !reports->failed;
}

int main(int argc, char** argv) {
    const char* directory = argc > 1 ? argv[1] : "recordings";
    struct reports reports = {0, 0};
    int recorded;

    /* Without this, asynchronous opens are refused. */
    if (!succeeded("attach", cachefile_caller_attach())) return 1;
    recorded = record(directory, &reports);
    cachefile_caller_detach();
    if (!recorded) return 1;
    if (cachefile_lost_bytes() > 0) {
        fprintf(stderr, "c_record: not everything could be written\n");
        return 1;
    }
    printf("wrote %d bytes to %s/%d/%s\n", PIECES * PIECE_SIZE, directory, RECORD_ID, FILE_NAME);
    return 0;
}
