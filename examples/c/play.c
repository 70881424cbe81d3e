/* The smallest player: reads back the file that c_record wrote, in synchronous mode.
 *
 *     c_play [DIRECTORY]        (c_record's directory)
 */
#include <cachefile_c.h>
#include <stdio.h>

enum { RECORD_ID = 4, RUN = 4096 };

static int succeeded(const char* step, int32_t result) {
    if (result == CACHEFILE_OK) return 1;
    fprintf(stderr, "c_play: %s: %s (%s)\n", step, cachefile_result_text(result),
            cachefile_result_name(result));
    return 0;
}

/* Opens the file and reads it to its end. The host describes the file as data type 4, file id 1004
 * and kind 4. Reads select the file by this description, not by its name. */
static int play(cachefile_player* player, unsigned long* played) {
    cachefile_describer describer = CACHEFILE_DESCRIBER_INIT;
    cachefile_data_info info = CACHEFILE_DATA_INFO_INIT;
    unsigned char buffer[RUN];
    uint32_t length = 0;

    describer.data_type = info.data_type = 4;
    describer.file_id = info.file_id = 1004;
    describer.file_kind = info.file_kinds = 4;
    if (!succeeded("open", cachefile_player_open_record(player, "samples.raw", &describer, 0)))
        return 0;
    do {
        if (!succeeded("read", cachefile_player_read_sync(player, &info, buffer,
                                                          (uint32_t)*played, RUN, &length)))
            return 0;
        *played += length; /* a real player would use the bytes in buffer here */
    } while (length == RUN); /* a short read means the end of the file */
    return 1;
}

int main(int argc, char** argv) {
    const char* directory = argc > 1 ? argv[1] : "recordings";
    cachefile_player* player = NULL;
    unsigned long played = 0;
    int done;

    if (!succeeded("directory", cachefile_set_home_dir(directory)) ||
        !succeeded("create", cachefile_player_create(RECORD_ID, 0, NULL, &player)))
        return 1;
    done = play(player, &played);
    cachefile_player_destroy(player);
    if (!done) return 1;
    printf("played %lu bytes of %s/%d/samples.raw\n", played, directory, RECORD_ID);
    return 0;
}
