/* Sends a moving grey ramp, 30 frames a second, to a camera: minimal_producer [WIDTH HEIGHT [SECONDS [PIPE]]] */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <windows.h> /* for Sleep alone */

#include "ravlo/producer.h"

int main(int argc, char** argv) {
    const uint32_t width = argc > 2 ? (uint32_t)strtoul(argv[1], NULL, 10) : 1280;
    const uint32_t height = argc > 2 ? (uint32_t)strtoul(argv[2], NULL, 10) : 720;
    const uint32_t frames = 30 * (argc > 3 ? (uint32_t)strtoul(argv[3], NULL, 10) : 10);
    const size_t bytes = ravlo_frame_bytes(width, height); /* 0 for a size that no picture has */
    uint8_t* const nv12 = malloc(bytes + 1);
    ravlo_producer* camera = NULL;
    ravlo_status status = bytes == 0     ? RAVLO_INVALID_ARGUMENT
                          : nv12 == NULL ? RAVLO_OUT_OF_MEMORY
                                         : ravlo_producer_open(argc > 4 ? argv[4] : NULL, &camera);

    for (uint32_t frame = 0; status == RAVLO_OK && frame < frames; ++frame) {
        memset(nv12, 128, bytes); /* no colour */
        for (size_t i = 0; i < (size_t)width * height; ++i)
            nv12[i] = (uint8_t)(16 + (i % width + 2 * frame) % 220);
        if (!ravlo_producer_is_connected(camera))
            status = ravlo_producer_connect(camera, 5000);
        if (status != RAVLO_OK)
            break;
        const ravlo_status sent = ravlo_producer_write(camera, width, height, nv12, 500);
        if (sent != RAVLO_OK) /* the next round connects again */
            fprintf(stderr, "frame %u is lost: %s\n", (unsigned)frame, ravlo_status_text(sent));
        Sleep(33);
    }
    if (status != RAVLO_OK)
        fprintf(stderr, "giving up: %s\n", ravlo_status_text(status));
    ravlo_producer_close(camera);
    free(nv12);
    return status != RAVLO_OK;
}
