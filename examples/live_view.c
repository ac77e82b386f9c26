/*
 * live_view: watches stream 0 of a device, shows what arrives and keeps the video in a file.
 *
 * Threads: the main thread logs in, shows and logs out; the library calls on_stream on the login's
 * receiver thread and on_event on a thread per event. What they share stands in `struct view`,
 * under its lock. A lost link needs nothing from us: the library connects again by itself, starts
 * the stream again and asks for a key frame.
 *
 * The live line goes to standard error, the summary to standard output. Ends with 0 when video
 * arrived; 1: it could not be kept in the file; 2: wrong options; 3: no login; 4: the device did
 * not start the stream; 5: no video came.
 */
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "device_login.h"
#include "zu_net_dev_api.h"

enum { EXIT_VIDEO = 0, EXIT_FILE = 1, EXIT_START = 4, EXIT_NO_VIDEO = 5 };

enum { FLAG_SIZE = 4, MAX_CONNECTIONS = 32, MAX_PARAMETER_SETS = 512 };

enum { NAL_IDR = 5, NAL_SPS = 7 }; /* H.264 */

struct view {
    pthread_mutex_t lock;
    unsigned long frames, key_frames, audio, bytes;
    ZU_S_SysHeader description; /* zeros: none has come */
    unsigned long connected, disconnected, heartbeats;
    double last_frame, longest_gap; /* seconds */

    /* Frames of each connection, the one that Login made first. */
    unsigned long frames_of[MAX_CONNECTIONS];
    unsigned connection;
    int link_was_lost;

    FILE* file; /* NULL: none wanted */
    int file_failed;
    unsigned long kept;                               /* frames, in the file */
    int awaits_key_frame;                             /* nothing is written before one */
    unsigned char parameter_sets[MAX_PARAMETER_SETS]; /* of the last key block */
    size_t parameter_sets_size;
};

static struct view the_view = {.lock = PTHREAD_MUTEX_INITIALIZER, .awaits_key_frame = 1};

static volatile sig_atomic_t asked_to_end;

static void on_signal(int number)
{
    (void)number;
    asked_to_end = 1;
}

static double seconds_now(void)
{
    struct timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

/* ---- what arrives: the receiver thread, the view's lock is held ---- */

/* Whether an H.264 access unit (Annex B) has a NAL unit of this type. */
static int has_nal(const unsigned char* data, size_t size, unsigned type)
{
    for (size_t i = 0; i + 3 < size; ++i) {
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1 && (data[i + 3] & 31U) == type) {
            return 1;
        }
    }
    return 0;
}

static void write_out(struct view* view, const unsigned char* data, size_t size)
{
    if (fwrite(data, 1, size, view->file) != size) {
        view->file_failed = 1;
    }
}

/*
 * The file begins, and goes on after a gap, with a key frame, so that it decodes without an error.
 * A key frame needs its parameter sets in front of it. Where the device repeats them in the frame,
 * writing those of the key block too would only double them; where it does not, they go in here.
 */
static void keep_frame(struct view* view, const unsigned char* unit, size_t size, int is_key)
{
    if (view->file == NULL || (view->awaits_key_frame && !is_key)) {
        return;
    }
    view->awaits_key_frame = 0;
    if (is_key && !has_nal(unit, size, NAL_SPS)) {
        write_out(view, view->parameter_sets, view->parameter_sets_size);
    }
    write_out(view, unit, size);
    view->kept += 1;
}

static void take_video(struct view* view, const unsigned char* unit, size_t size)
{
    const double now = seconds_now();
    const int is_key = has_nal(unit, size, NAL_IDR);
    if (view->frames > 0 && now - view->last_frame > view->longest_gap) {
        view->longest_gap = now - view->last_frame;
    }
    view->last_frame = now;
    view->frames += 1;
    view->key_frames += is_key ? 1 : 0;
    view->frames_of[view->connection] += 1;
    keep_frame(view, unit, size, is_key);
}

static void take_key_block(struct view* view, const unsigned char* sets, size_t size)
{
    if (size <= sizeof view->parameter_sets) {
        memcpy(view->parameter_sets, sets, size);
        view->parameter_sets_size = size;
    }
}

/* The first block after a loss: frames between are missing, so the next ones lean on nothing. */
static void note_connection(struct view* view)
{
    if (view->link_was_lost) {
        view->link_was_lost = 0;
        view->awaits_key_frame = 1;
        view->connection += view->connection + 1 < MAX_CONNECTIONS ? 1 : 0;
    }
}

/* It comes where the stream begins, and again where it says something new, of the sound for
 * instance: so it is no reason to wait for a key frame. New pictures begin with one anyway. */
static void take_description(struct view* view, const unsigned char* block, size_t size)
{
    if (size >= sizeof view->description) { /* it may be shorter than it should be */
        memcpy(&view->description, block, sizeof view->description);
    }
}

static void take_block(struct view* view, ZU_U32 flag, const unsigned char* block, size_t size)
{
    const unsigned char* const rest = block + FLAG_SIZE;
    const size_t rest_size = size - FLAG_SIZE;
    switch (flag) {
    case ZU_NET_DEV_SYS_FLAG:
        take_description(view, block, size);
        break;
    case ZU_NET_DEV_KEY_FLAG:
        take_key_block(view, rest, rest_size);
        break;
    case ZU_NET_DEV_VIDEO_FLAG:
        take_video(view, rest, rest_size);
        break;
    case ZU_NET_DEV_AUDIO_FLAG:
        view->audio += 1;
        break;
    default: /* a device may send what we do not know */
        break;
    }
}

static ZU_S32 on_stream(ZU_U32 handle, ZU_U32 data_type, ZU_U8* data, ZU_U32 length, ZU_VOID* user)
{
    struct view* const view = user;
    ZU_U32 flag = 0;
    (void)handle;
    (void)data_type; /* tells less than the flag */
    if (length < FLAG_SIZE) {
        return 0;
    }
    memcpy(&flag, data, FLAG_SIZE); /* the block may stand at any address */
    (void)pthread_mutex_lock(&view->lock);
    view->bytes += length;
    note_connection(view);
    take_block(view, flag, data, length);
    (void)pthread_mutex_unlock(&view->lock);
    return 0;
}

static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* user)
{
    struct view* const view = user;
    (void)handle;
    (void)pthread_mutex_lock(&view->lock);
    view->connected += event == ZU_NET_DEV_CONNECTED ? 1 : 0;
    view->disconnected += event == ZU_NET_DEV_DISCONNECTED ? 1 : 0;
    view->heartbeats += event == ZU_NET_DEV_HEARTBEAT ? 1 : 0;
    view->link_was_lost |= event == ZU_NET_DEV_DISCONNECTED;
    (void)pthread_mutex_unlock(&view->lock);
    return 0;
}

/* ---- what is shown: the main thread ---- */

static void show_line(struct view* view, double elapsed, double mbit_per_second, int on_terminal)
{
    (void)pthread_mutex_lock(&view->lock);
    (void)fprintf(stderr,
                  "%s%5.1f s %lu frames %lu key %lu audio %.2f Mbit/s gap %.2f s up %lu down %lu "
                  "beats %lu%s",
                  on_terminal ? "\r" : "", elapsed, view->frames, view->key_frames, view->audio,
                  mbit_per_second, view->longest_gap, view->connected, view->disconnected,
                  view->heartbeats, on_terminal ? " " : "\n");
    (void)pthread_mutex_unlock(&view->lock);
}

static unsigned long bytes_so_far(struct view* view)
{
    (void)pthread_mutex_lock(&view->lock);
    const unsigned long bytes = view->bytes;
    (void)pthread_mutex_unlock(&view->lock);
    return bytes;
}

static void watch(struct view* view, long seconds)
{
    const struct timespec moment = {0, 100000000};
    const int on_terminal = isatty(STDERR_FILENO);
    const double began = seconds_now();
    double shown = began;
    unsigned long shown_bytes = bytes_so_far(view);
    while (!asked_to_end && (seconds == 0 || seconds_now() - began < (double)seconds)) {
        (void)nanosleep(&moment, NULL); /* a signal ends it early */
        const double now = seconds_now();
        if (now - shown >= 1.0) {
            const unsigned long bytes = bytes_so_far(view);
            const double mbit = (double)(bytes - shown_bytes) * 8 / 1e6 / (now - shown);
            show_line(view, now - began, mbit, on_terminal);
            shown = now;
            shown_bytes = bytes;
        }
    }
    if (on_terminal) {
        (void)fputs("\n", stderr);
    }
}

static void summarise(struct view* view)
{
    (void)pthread_mutex_lock(&view->lock);
    printf("summary: %lu frames, %lu key frames, %lu audio blocks, %.1f MB, longest gap %.2f s\n",
           view->frames, view->key_frames, view->audio, (double)view->bytes / 1e6,
           view->longest_gap);
    printf("described as: %u x %u, %u frames/s\n", view->description.struVHeader.u32Width,
           view->description.struVHeader.u32Height, view->description.struSHeader.u32FrameRate);
    printf("frames per connection:");
    for (unsigned i = 0; i <= view->connection; ++i) {
        printf(" %lu", view->frames_of[i]);
    }
    printf("\n");
    (void)pthread_mutex_unlock(&view->lock);
}

/* ---- the whole: the main thread ---- */

/* Callbacks first, so that nothing of the stream is missed. */
static int view_stream(ZU_U32 handle, struct view* view, long seconds)
{
    ZU_S_STREAM_INFO_EXT stream = {.u32Stream = 0, .u8Type = 1};
    if (ZU_NET_DEV_SetStreamCallBack(handle, on_stream, view) != ZU_SUCCESS ||
        ZU_NET_DEV_SetEventCallBack(handle, on_event, view) != ZU_SUCCESS ||
        ZU_NET_DEV_StartStreamExt(handle, &stream) != ZU_SUCCESS) {
        complain("the device did not start stream 0");
        return EXIT_START;
    }
    if (ZU_NET_DEV_MakeKeyFrame(handle, 11 + stream.u32Stream) != ZU_SUCCESS) {
        complain("no key frame on demand, waiting for the next one");
    }
    watch(view, seconds);
    if (ZU_NET_DEV_StopStream(handle) != ZU_SUCCESS) { /* no harm: logging out ends it too */
        complain("the device did not stop stream 0");
    }
    return EXIT_VIDEO;
}

/* Opened after the login, so that a device that is not there costs nobody the file of before. */
static int open_file(struct view* view, const char* name)
{
    view->file = name != NULL ? fopen(name, "wb") : NULL;
    if (name == NULL || view->file != NULL) {
        return 1;
    }
    complain("cannot write %s: %s", name, strerror(errno));
    return 0;
}

static int judge_file(struct view* view)
{
    if (fclose(view->file) != 0 || view->file_failed) {
        complain("the file could not be written");
        return EXIT_FILE;
    }
    if (view->kept == 0 && view->frames > 0) {
        complain("no H.264 key frame came, nothing was kept");
        return EXIT_FILE;
    }
    return EXIT_VIDEO;
}

static int judge(struct view* view, int result)
{
    const int kept = view->file != NULL ? judge_file(view) : EXIT_VIDEO;
    if (kept != EXIT_VIDEO) {
        return kept;
    }
    if (result == EXIT_VIDEO && view->frames == 0) {
        complain("no video came");
        return EXIT_NO_VIDEO;
    }
    return result;
}

int main(int argc, char** argv)
{
    struct device_options options;
    const struct sigaction to_the_end = {.sa_handler = on_signal};
    int result = EXIT_FILE;
    read_device_options(argc, argv, TAKES_SECONDS | TAKES_OUT, &options);
    (void)sigaction(SIGINT, &to_the_end, NULL);
    (void)sigaction(SIGTERM, &to_the_end, NULL);
    const ZU_U32 handle = log_in(&options);
    const int has_file = open_file(&the_view, options.out);
    if (has_file) {
        result = view_stream(handle, &the_view, options.seconds);
    }
    log_out(handle); /* from here on nobody calls back */
    if (!has_file) {
        return result;
    }
    summarise(&the_view);
    return judge(&the_view, result);
}
