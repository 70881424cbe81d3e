#include <cachefile/cachefile_c.h>
#include <stdio.h>

/* Records 6 bytes as file greeting.txt of recording 12, in synchronous mode. */
static int32_t record(void) {
    cachefile_writer* writer = NULL;
    uint32_t file = 0;
    int32_t result = cachefile_writer_create(12, 0, NULL, &writer);
    if (result != CACHEFILE_OK) return result;
    result = cachefile_writer_open(writer, "greeting.txt", &file);
    if (result == CACHEFILE_OK) result = cachefile_writer_append(writer, file, "hello\n", 6);
    if (result == CACHEFILE_OK) result = cachefile_writer_close(writer, file);
    cachefile_writer_destroy(writer);
    return result;
}

/* Reads them back. A request describes the data: here type 1, file id 1001, kind 2. */
static int32_t play(char* buffer, uint32_t size, uint32_t* length) {
    cachefile_player* player = NULL;
    cachefile_describer describer = CACHEFILE_DESCRIBER_INIT;
    cachefile_data_info info = CACHEFILE_DATA_INFO_INIT;
    int32_t result = cachefile_player_create(12, 0, NULL, &player);
    if (result != CACHEFILE_OK) return result;
    describer.data_type = info.data_type = 1;
    describer.file_id = info.file_id = 1001;
    describer.file_kind = info.file_kinds = 2;
    result = cachefile_player_open_record(player, "greeting.txt", &describer, 0);
    if (result == CACHEFILE_OK)
        result = cachefile_player_read_sync(player, &info, buffer, 0, size, length);
    cachefile_player_destroy(player);
    return result;
}

int main(void) {
    char buffer[64];
    uint32_t length = 0;
    int32_t result = cachefile_set_home_dir("recordings");
    if (result == CACHEFILE_OK) result = record();
    if (result == CACHEFILE_OK) result = play(buffer, sizeof buffer, &length);
    if (result != CACHEFILE_OK) fprintf(stderr, "%s\n", cachefile_result_text(result));
    printf("%.*s", (int)length, buffer);
    return result == CACHEFILE_OK && length == 6 && cachefile_lost_bytes() == 0 ? 0 : 1;
}
