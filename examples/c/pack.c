/* Packs files into a container, which holds a whole recording in one file.
 *
 *     c_pack CONTAINER FILE...        (each FILE becomes a stream)
 */
#include <cachefile_c.h>
#include <stdio.h>

static int succeeded(const char* step, int32_t result) {
    if (result == CACHEFILE_OK) return 1;
    fprintf(stderr, "c_pack: %s: %s (%s)\n", step, cachefile_result_text(result),
            cachefile_result_name(result));
    return 0;
}

/* Shows each tenth that is written. A host that wants to cancel returns 0. */
static int32_t show(void* user, uint64_t done, uint64_t total) {
    int* shown = user;
    int tenths = total == 0 ? 0 : (int)(10 * done / total);
    if (tenths != *shown) fprintf(stderr, "%d %%\n", 10 * tenths);
    *shown = tenths;
    return 1;
}

static int pack(cachefile_packer* packer, const char* container, int count, char** files) {
    int n, shown = 0;
    if (!succeeded("header", cachefile_packer_set_header(packer, 1, 1700000000))) return 0;
    for (n = 0; n < count; ++n) {
        cachefile_describer describer = CACHEFILE_DESCRIBER_INIT;
        describer.data_type = 4;
        describer.file_kind = 4;
        describer.file_id = (uint32_t)(n + 1) * 1000 + 4; /* n * 1000 + data type */
        if (!succeeded(files[n], cachefile_packer_add_file(packer, &describer, files[n])))
            return 0;
    }
    /* Until the container is complete, its file has another name. */
    return succeeded(container,
                     cachefile_packer_write_progress(packer, container, show, &shown));
}

int main(int argc, char** argv) {
    cachefile_packer* packer = NULL;
    int packed;

    if (argc < 3) {
        fprintf(stderr, "usage: c_pack CONTAINER FILE...\n");
        return 2;
    }
    if (!succeeded("create", cachefile_packer_create(&packer))) return 1;
    packed = pack(packer, argv[1], argc - 2, argv + 2);
    cachefile_packer_destroy(packer);
    if (!packed) return 1;
    printf("packed %d streams into %s\n", argc - 2, argv[1]);
    return 0;
}
