/*
 * The queue records: declared for programs that name them, and for the shape of the library's own
 * record of a login. Nothing in the library creates, fills or reads a queue, and there are no
 * functions that work on one.
 */
#ifndef ZU_QUEUE_H
#define ZU_QUEUE_H

#include <pthread.h>

#include "zu_data_type.h"

/* One entry. */
typedef struct zu_data_queue {
    ZU_VOID* data;      /* the bytes */
    ZU_U32 size;        /* how many */
    ZU_U32 data_type;   /* a stream data type, ZU_NET_DEV_AV_DATA and its neighbours */
    ZU_VOID* user_data; /* the owner's */
} data_queue_s;

/* A ring of entries. */
typedef struct zu_queue {
    data_queue_s** ring;   /* `max_len` pointers */
    ZU_U16 max_len;        /* entries that the ring can hold */
    ZU_U16 len;            /* entries that it holds */
    ZU_U16 head;           /* the oldest entry */
    ZU_U16 tail;           /* the first free place */
    pthread_mutex_t mutex; /* guards the four lengths and the ring */
} queue_s;

#endif /* ZU_QUEUE_H */
