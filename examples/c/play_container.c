/* Plays all streams of a container in asynchronous mode. The worker thread reads, and this thread
 * receives the bytes.
 *
 *     c_play_container CONTAINER
 */
#include <cachefile_c.h>
#include <stdio.h>

enum { RUN = 65536, WAIT_MILLISECONDS = 1000 };

static int succeeded(const char* step, int32_t result) {
    if (result == CACHEFILE_OK) return 1;
    fprintf(stderr, "c_play_container: %s: %s (%s)\n", step, cachefile_result_text(result),
            cachefile_result_name(result));
    return 0;
}

/* The position in the container. The callbacks receive it as their user pointer. */
struct state {
    cachefile_player* player;
    cachefile_data_info info; /* the current stream */
    size_t next;              /* the number of the stream after it */
    uint32_t length;          /* its length */
    uint32_t offset;          /* how many bytes of it were played */
    unsigned long played;
    int done;
    int failed;
    unsigned char buffer[RUN]; /* must stay valid until on_data is called, so it is here */
};

/* Selects the next stream. */
static int32_t select_stream(struct state* state) {
    cachefile_describer stream = CACHEFILE_DESCRIBER_INIT;
    int32_t result = cachefile_player_get_stream(state->player, state->next++, &stream);
    if (result != CACHEFILE_OK) return result;
    state->info.data_type = stream.data_type;
    state->info.file_id = stream.file_id;
    state->info.file_kinds = stream.file_kind;
    state->offset = 0;
    return cachefile_player_stream_length(state->player, &state->info, &state->length);
}

/* Reads the next bytes of this stream, or of the next stream that is not empty. */
static void read_more(struct state* state) {
    uint32_t left;
    while (state->offset == state->length) {
        if (state->next == cachefile_player_stream_count(state->player)) {
            state->done = 1;
            return;
        }
        if (!succeeded("select a stream", select_stream(state))) {
            state->failed = 1;
            return;
        }
    }
    left = state->length - state->offset;
    if (!succeeded("read", cachefile_player_read(state->player, &state->info, state->buffer,
                                                 state->offset, left < RUN ? left : RUN, NULL)))
        state->failed = 1;
}

static void on_status(void* user, int32_t operation, int32_t result) {
    struct state* state = user;
    (void)operation;
    if (!succeeded("read", result)) state->failed = 1;
}

static void on_data(void* user, void* request, void* data, uint32_t length,
                    const cachefile_data_info* info) {
    struct state* state = user;
    (void)request;
    (void)data; /* a real player would use the bytes here */
    (void)info;
    state->played += length;
    state->offset += length;
    if (length == 0)
        state->failed = 1; /* the file has become shorter */
    else
        read_more(state);
}

static int play(struct state* state, const char* container) {
    if (!succeeded("open", cachefile_player_open_container(state->player, container))) return 0;
    read_more(state);
    while (!state->done && !state->failed)
        if (!succeeded("run", cachefile_caller_wait_and_run(WAIT_MILLISECONDS, NULL))) return 0;
    return !state->failed;
}

int main(int argc, char** argv) {
    static struct state state = {.info = CACHEFILE_DATA_INFO_INIT};
    cachefile_callbacks callbacks = CACHEFILE_CALLBACKS_INIT;
    int played = 0;

    if (argc != 2) {
        fprintf(stderr, "usage: c_play_container CONTAINER\n");
        return 2;
    }
    callbacks.user = &state;
    callbacks.on_status = on_status;
    callbacks.on_data = on_data;
    if (!succeeded("attach", cachefile_caller_attach())) return 1;
    if (succeeded("create", cachefile_player_create(1, CACHEFILE_ASYNC | CACHEFILE_DOWNLOAD,
                                                    &callbacks, &state.player)))
        played = play(&state, argv[1]);
    cachefile_player_destroy(state.player); /* also ends the worker thread */
    cachefile_caller_detach();
    if (!played) return 1;
    printf("played %lu bytes of %s\n", state.played, argv[1]);
    return 0;
}
