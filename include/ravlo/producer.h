#ifndef RAVLO_PRODUCER_H
#define RAVLO_PRODUCER_H

/*
 * Sends pictures to a Ravlo camera: C11 and C++, no Windows header.
 *
 *     ravlo_producer *camera = NULL;
 *     if (ravlo_producer_open(NULL, &camera) != RAVLO_OK) ...
 *     for (;;) {
 *         if (!ravlo_producer_is_connected(camera)) ravlo_producer_connect(camera, 1000);
 *         else ravlo_producer_write(camera, 1280, 720, nv12, 500);
 *         ... wait for the next frame's time ...
 *     }
 *     ravlo_producer_close(camera);
 *
 * Pictures are NV12 with studio levels (luma 16..235, chroma 16..240) in BT.709; width and height are those of the
 * camera, which neither scales nor tells its size. The caller keeps the pace: the camera shows the newest picture.
 *
 * One thread uses a producer at a time; different producers are independent. No function keeps a pointer that it was
 * given beyond its own return. Texts are UTF-8.
 */

/* NOLINTBEGIN(modernize-deprecated-headers, modernize-use-using): this is C as well */

#include <stddef.h>
#include <stdint.h>

/* Define RAVLO_PRODUCER_DLL to use ravloproducer.dll; without it the static library is meant. */
#if defined(RAVLO_PRODUCER_DLL)
#define RAVLO_PRODUCER_API __declspec(dllimport)
#else
#define RAVLO_PRODUCER_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef enum ravlo_status {
    RAVLO_OK = 0,
    RAVLO_INVALID_ARGUMENT = 1, /* a null pointer, an impossible size, a name that is no frame-pipe name */
    RAVLO_OUT_OF_MEMORY = 2,
    RAVLO_NO_CAMERA = 3,       /* no camera serves a pipe of this name, or it is restarting; it may come later */
    RAVLO_BUSY = 4,            /* another producer is connected */
    RAVLO_ACCESS_DENIED = 5,   /* the pipe does not admit this account */
    RAVLO_UNTRUSTED_OWNER = 6, /* somebody who may not own the camera's pipe serves a pipe of this name */
    RAVLO_DISCONNECTED = 7,    /* not connected, or the camera has closed the connection */
    RAVLO_TIMED_OUT = 8,       /* the pipe did not take the picture in time; the connection is closed */
    RAVLO_NO_DEMAND = 9,       /* the camera has said nothing about its demand for two seconds, or nothing at all */
    RAVLO_SYSTEM_ERROR = 10    /* the operating system refused; see ravlo_producer_system_error */
} ravlo_status;

/* The connection to one camera, kept or not yet made. */
typedef struct ravlo_producer ravlo_producer;

/* What a camera says about the demand for its pictures, about twice a second. */
typedef struct ravlo_demand {
    uint64_t sequence; /* 1 for the first record of this camera, then one more for each; a gap is a record lost */
    uint64_t idle_ms;  /* since the last sample was asked for, at most 3600000; 3600000 also when none ever was */
    uint64_t requests; /* samples asked for since the camera was last started */
    uint64_t age_ms;   /* since a call of ravlo_producer_read_demand took this record; below 2000 */
} ravlo_demand;

/*
 * Makes a producer for the camera that serves `pipe_name`, such as "\\\\.\\pipe\\Ravlo.7", or "\\\\.\\pipe\\Ravlo" for
 * NULL. Does not look for the camera yet. RAVLO_OK stores a producer that ravlo_producer_close frees; anything else
 * (RAVLO_INVALID_ARGUMENT, RAVLO_OUT_OF_MEMORY) stores NULL, if `producer` itself is not NULL.
 */
RAVLO_PRODUCER_API ravlo_status ravlo_producer_open(const char* pipe_name, ravlo_producer** producer);

/* Closes the connection and frees the producer. NULL is allowed. */
RAVLO_PRODUCER_API void ravlo_producer_close(ravlo_producer* producer);

/*
 * Connects, trying every 50 ms until `timeout_ms` has passed; 0 tries once. The pipe's owner is verified before
 * anything is sent: LOCAL SERVICE, LOCAL SYSTEM or the user that the administrator named. A producer that is connected
 * already disconnects first. RAVLO_OK, RAVLO_NO_CAMERA, RAVLO_BUSY, RAVLO_ACCESS_DENIED, RAVLO_UNTRUSTED_OWNER,
 * RAVLO_INVALID_ARGUMENT, RAVLO_OUT_OF_MEMORY or RAVLO_SYSTEM_ERROR. Only what may change by itself (no camera, busy)
 * is waited for.
 */
RAVLO_PRODUCER_API ravlo_status ravlo_producer_connect(ravlo_producer* producer, uint32_t timeout_ms);

/* Closes the connection, and the demand pipe with it; the producer can connect again. */
RAVLO_PRODUCER_API void ravlo_producer_disconnect(ravlo_producer* producer);

/* 1 while connected, else 0, also for NULL. A camera that has gone away is noticed by the next write, not by this. */
RAVLO_PRODUCER_API int ravlo_producer_is_connected(const ravlo_producer* producer);

/*
 * Sends one packed NV12 picture: `height` rows of `width` luma bytes, then `height` / 2 rows of interleaved chroma,
 * ravlo_frame_bytes(width, height) bytes in all. Blocks until the pipe has all of it, of which the camera may read the
 * last MiB a little later, or `timeout_ms` has passed. RAVLO_OK, RAVLO_INVALID_ARGUMENT (nothing was sent and the
 * connection stays), or RAVLO_DISCONNECTED, RAVLO_TIMED_OUT, RAVLO_SYSTEM_ERROR: the connection is closed then, because a
 * picture cut short cannot be taken back. A `timeout_ms` of 0 can only end in RAVLO_TIMED_OUT.
 */
RAVLO_PRODUCER_API ravlo_status ravlo_producer_write(ravlo_producer* producer, uint32_t width, uint32_t height,
                                                     const void* nv12, uint32_t timeout_ms);

/*
 * As ravlo_producer_write, from two planes whose rows begin `luma_stride` and `chroma_stride` bytes apart, each at
 * least `width`. Copies the picture once; also RAVLO_OUT_OF_MEMORY (nothing was sent, the connection stays).
 */
RAVLO_PRODUCER_API ravlo_status ravlo_producer_write_planes(ravlo_producer* producer, uint32_t width, uint32_t height,
                                                            const void* luma, size_t luma_stride, const void* chroma,
                                                            size_t chroma_stride, uint32_t timeout_ms);

/*
 * Number of the next picture, as the camera's log shows it. Begins with 1 and counts every picture of which a part may
 * have been sent, over all connections; what was refused beforehand (RAVLO_INVALID_ARGUMENT, no connection) takes none.
 * 0 for NULL.
 */
RAVLO_PRODUCER_API uint64_t ravlo_producer_next_sequence(const ravlo_producer* producer);

/*
 * The newest record of the camera's demand. Never waits: it takes what has come since the last call, and opens the
 * demand pipe when that is due (at most twice a second), so call it a few times a second or with every picture: records
 * that have waited for two seconds because nobody called count for nothing.
 * RAVLO_OK, RAVLO_INVALID_ARGUMENT, or RAVLO_NO_DEMAND: then nothing is known and every picture is wanted, and
 * ravlo_producer_system_error says why the demand pipe is closed, 0 meaning that it is open and silent. Zeroes `demand`
 * unless the result is RAVLO_OK. Without a frame connection the demand pipe is closed and nothing is known: a camera
 * tells its demand to one program alone, which should be the one that sends. A record does not outlive its connection.
 */
RAVLO_PRODUCER_API ravlo_status ravlo_producer_read_demand(ravlo_producer* producer, ravlo_demand* demand);

/*
 * The operating system's error code behind this producer's last result that was not RAVLO_OK; 0 when there is none, and
 * for NULL.
 */
RAVLO_PRODUCER_API uint32_t ravlo_producer_system_error(const ravlo_producer* producer);

/* What a result means, as a sentence part such as "no camera serves this pipe". Never NULL; lives for ever. */
RAVLO_PRODUCER_API const char* ravlo_status_text(ravlo_status status);

/*
 * Bytes of a packed NV12 picture; 0 for a size that cannot be sent (odd, 0, or above 16384). The largest picture that a
 * camera can have is as long as one of 3840x2160.
 */
RAVLO_PRODUCER_API size_t ravlo_frame_bytes(uint32_t width, uint32_t height);

/* The library's version, such as "1.0.0". Lives for ever. */
RAVLO_PRODUCER_API const char* ravlo_producer_version(void);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(modernize-deprecated-headers, modernize-use-using) */

#endif
