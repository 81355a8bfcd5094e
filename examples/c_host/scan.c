/*
 * A C host: scans one picture with the installed engine and its default
 * resource pack, and prints the result document.
 *
 *   gcc scan.c -o scan $(pkg-config --cflags --libs nubex-engine stb)
 *   ./scan PICTURE [CATEGORIES]
 *
 * CATEGORIES is a comma-separated list of category identifiers ("8337, 9112");
 * without it every category the engine offers is scanned. Pictures are read
 * with stb_image (PNG, JPEG, BMP, ...).
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <nubex_engine.h>
#include <stb_image.h>

/* The engine's layout: blue, green, red; each row padded by width % 4 bytes. */
static uint8_t* to_engine_layout(const uint8_t* rgb, int width, int height, int32_t* size) {
    const size_t stride = (size_t)width * 3 + (size_t)(width % 4);
    uint8_t* bgr = calloc(stride * (size_t)height, 1);
    if (bgr == NULL) return NULL;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* from = rgb + ((size_t)y * width + x) * 3;
            uint8_t* to = bgr + (size_t)y * stride + (size_t)x * 3;
            to[0] = from[2];
            to[1] = from[1];
            to[2] = from[0];
        }
    }
    *size = (int32_t)(stride * (size_t)height);
    return bgr;
}

/* Every category the engine offers, as "id, id, ..."; *count receives how many. */
static char* all_categories(int* count) {
    char** listed = NULL;
    const int32_t n = GetNubexCategories(&listed);
    char* list = calloc((size_t)n * 12 + 1, 1);
    *count = 0;
    for (int32_t i = 0; i < n; ++i) {
        /* Each entry is "<identifier>\t<name>". */
        if (list != NULL) {
            if (*count > 0) strcat(list, ",");
            strncat(list, listed[i], strcspn(listed[i], "\t"));
            ++*count;
        }
        ReleaseNubexMemory(listed[i]);
    }
    ReleaseNubexMemory(listed);
    return list;
}

static int count_items(const char* list) {
    int count = 1;
    for (const char* c = list; *c; ++c) count += *c == ',';
    return count;
}

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: %s PICTURE [CATEGORIES]\n", argv[0]);
        return 2;
    }
    int width = 0, height = 0, channels = 0;
    uint8_t* rgb = stbi_load(argv[1], &width, &height, &channels, 3);
    if (rgb == NULL) {
        fprintf(stderr, "cannot read %s: %s\n", argv[1], stbi_failure_reason());
        return 1;
    }
    int32_t size = 0;
    uint8_t* image = to_engine_layout(rgb, width, height, &size);
    stbi_image_free(rgb);
    if (image == NULL) return 1;

    if (InitializeNubexEngine() == 0) fprintf(stderr, "the engine could not set up its inference core\n");

    int count = 0;
    char* categories = argc == 3 ? strdup(argv[2]) : all_categories(&count);
    if (argc == 3) count = count_items(categories);
    float* scores = calloc((size_t)count + 1, sizeof(float));

    char* document = ScanImage(image, size, width, height, categories, scores, 50.0f);
    printf("%s\n", document);
    ReleaseNubexMemory(document);

    free(scores);
    free(categories);
    free(image);
    DeInitializeNubexEngine(-1);
    return 0;
}
