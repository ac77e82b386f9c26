/*
 * Records about recordings on the device's own disk. The library carries them: its setting message
 * is as large as the largest of them, and none of its functions reads or writes one. A program
 * fills one for ZU_NET_DEV_SetConfig, under a command code that its device defines;
 * ZU_NET_DEV_GetConfig brings none of them back.
 *
 * The caller owns them, and any thread may use its own. Little-endian, naturally aligned, checked
 * below. Numbers whose meaning is not told are the device's. Fill a record with zeros first: its
 * padding is sent too. Texts end with a NUL when the program writes them.
 */
#ifndef ZU_NET_DEV_DISK_H
#define ZU_NET_DEV_DISK_H

#include "zu_data_type.h"

/* Begin a recording. */
typedef struct ZU_StartRecord {
    ZU_U32 u32Duration;
    ZU_CHAR sPreName[17]; /* what the names of its files begin with; 3 bytes of padding follow */
    ZU_U32 u32Type;
    ZU_U32 u32Format;
} ZU_S_StartRecord;

/* A minute of the device's calendar. */
typedef struct ZU_RECORD_DATE {
    ZU_U32 u32Year;
    ZU_U32 u32Month;
    ZU_U32 u32Day;
    ZU_U32 u32Hour;
    ZU_U32 u32Minute;
} ZU_S_RECORD_DATE;

/* One page of the list of recorded files, between two dates. The largest record there is. */
typedef struct ZU_GetFileList {
    ZU_CHAR Name[3072];   /* the names of the page */
    ZU_U32 u32Total;      /* files */
    ZU_U32 u32Paged;      /* the page */
    ZU_U32 u32TotalPaged; /* pages */
    ZU_U32 u32Mode;
    ZU_U32 u32Filter;
    ZU_S_RECORD_DATE Ceiling; /* one end of the time span */
    ZU_S_RECORD_DATE Floor;   /* the other */
} ZU_S_GetFileList;

/* Delete a recorded file. */
typedef struct ZU_DeleteFile {
    ZU_U32 u32Type;
    ZU_CHAR Name[256]; /* the file */
} ZU_S_DeleteFile;

/* Play a recording, by file or by time. */
typedef struct ZU_GetRecordStream {
    ZU_U32 u32Type;
    ZU_U32 u32OutputMode;
    ZU_CHAR Name[256];
    ZU_S_RECORD_DATE Ceiling; /* one end of the time span */
    ZU_S_RECORD_DATE Floor;   /* the other */
} ZU_S_GetRecordStream;

/* Space on the device's disk, in the device's unit. */
typedef struct ZU_GetUdiskInfo {
    ZU_U32 u32DiskTotal;
    ZU_U32 u32DiskAvail;
} ZU_S_GetUdiskInfo;

/* Whether the device records. */
typedef struct ZU_RecordStatus {
    ZU_U32 status;
} ZU_S_RecordStatus;

/* Recording that the device starts by itself. */
typedef struct ZU_AutoRecord {
    ZU_U32 u32Enable;
    ZU_U32 u32Duration;
    ZU_CHAR sPreName[17]; /* what the names of its files begin with; 3 bytes of padding follow */
    ZU_U32 u32Type;
} ZU_S_AutoRecord;

/* ---- the layout, as the device sees it ---- */

ZU_ASSERT_SIZE(ZU_S_StartRecord, 32);
ZU_ASSERT_FIELD(ZU_S_StartRecord, u32Duration, 0);
ZU_ASSERT_FIELD(ZU_S_StartRecord, sPreName, 4);
ZU_ASSERT_FIELD(ZU_S_StartRecord, u32Type, 24);
ZU_ASSERT_FIELD(ZU_S_StartRecord, u32Format, 28);

ZU_ASSERT_SIZE(ZU_S_RECORD_DATE, 20);
ZU_ASSERT_FIELD(ZU_S_RECORD_DATE, u32Year, 0);
ZU_ASSERT_FIELD(ZU_S_RECORD_DATE, u32Month, 4);
ZU_ASSERT_FIELD(ZU_S_RECORD_DATE, u32Day, 8);
ZU_ASSERT_FIELD(ZU_S_RECORD_DATE, u32Hour, 12);
ZU_ASSERT_FIELD(ZU_S_RECORD_DATE, u32Minute, 16);

ZU_ASSERT_SIZE(ZU_S_GetFileList, 3132);
ZU_ASSERT_FIELD(ZU_S_GetFileList, Name, 0);
ZU_ASSERT_FIELD(ZU_S_GetFileList, u32Total, 3072);
ZU_ASSERT_FIELD(ZU_S_GetFileList, u32Paged, 3076);
ZU_ASSERT_FIELD(ZU_S_GetFileList, u32TotalPaged, 3080);
ZU_ASSERT_FIELD(ZU_S_GetFileList, u32Mode, 3084);
ZU_ASSERT_FIELD(ZU_S_GetFileList, u32Filter, 3088);
ZU_ASSERT_FIELD(ZU_S_GetFileList, Ceiling, 3092);
ZU_ASSERT_FIELD(ZU_S_GetFileList, Floor, 3112);

ZU_ASSERT_SIZE(ZU_S_DeleteFile, 260);
ZU_ASSERT_FIELD(ZU_S_DeleteFile, u32Type, 0);
ZU_ASSERT_FIELD(ZU_S_DeleteFile, Name, 4);

ZU_ASSERT_SIZE(ZU_S_GetRecordStream, 304);
ZU_ASSERT_FIELD(ZU_S_GetRecordStream, u32Type, 0);
ZU_ASSERT_FIELD(ZU_S_GetRecordStream, u32OutputMode, 4);
ZU_ASSERT_FIELD(ZU_S_GetRecordStream, Name, 8);
ZU_ASSERT_FIELD(ZU_S_GetRecordStream, Ceiling, 264);
ZU_ASSERT_FIELD(ZU_S_GetRecordStream, Floor, 284);

ZU_ASSERT_SIZE(ZU_S_GetUdiskInfo, 8);
ZU_ASSERT_FIELD(ZU_S_GetUdiskInfo, u32DiskTotal, 0);
ZU_ASSERT_FIELD(ZU_S_GetUdiskInfo, u32DiskAvail, 4);

ZU_ASSERT_SIZE(ZU_S_RecordStatus, 4);
ZU_ASSERT_FIELD(ZU_S_RecordStatus, status, 0);

ZU_ASSERT_SIZE(ZU_S_AutoRecord, 32);
ZU_ASSERT_FIELD(ZU_S_AutoRecord, u32Enable, 0);
ZU_ASSERT_FIELD(ZU_S_AutoRecord, u32Duration, 4);
ZU_ASSERT_FIELD(ZU_S_AutoRecord, sPreName, 8);
ZU_ASSERT_FIELD(ZU_S_AutoRecord, u32Type, 28);

#endif /* ZU_NET_DEV_DISK_H */
