/*
 * Preloaded into a program: an FFmpeg that was built without H.265. Called by any thread; keeps no
 * state.
 */
#include <dlfcn.h>
#include <stddef.h>
#include <string.h>

const void* avcodec_find_encoder_by_name(const char* name);

const void* avcodec_find_encoder_by_name(const char* name)
{
    const void* (*real)(const char*) = NULL;
    *(void**)&real = dlsym(RTLD_NEXT, "avcodec_find_encoder_by_name");
    return strcmp(name, "libx265") == 0 || real == NULL ? NULL : real(name);
}
