/*
 * PlatformBridge.h - the few operating-system services the plug-in needs, behind a flat C interface.
 *
 * Only plain data crosses this boundary: NUL-terminated UTF-8 byte strings, arrays of UTF-16 units in
 * machine byte order with a separate signed 32-bit count, counts and booleans. Every buffer a function
 * returns is allocated with malloc and belongs to the caller, who releases it with the matching ST_Free*
 * function (or free). Nothing here throws, logs or keeps state; failures are null results, a count of 0,
 * false or a negative return. Invalid UTF-8 or UTF-16 input is repaired with U+FFFD, never an error.
 *
 *     int32_t count = 0;
 *     uint16_t* units = ST_Utf8ToUtf16("Gr\xC3\xBC\xC3\x9F", &count);   // 5 units
 *     ...
 *     ST_FreeUtf16(units);
 *
 * The Linux version, the one built here, takes its services from POSIX and ICU.
 */
#ifndef BRIVANE_BRIDGE_PLATFORMBRIDGE_H
#define BRIVANE_BRIDGE_PLATFORMBRIDGE_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Returned by ST_ToLowerCase for a null buffer or a negative count or capacity. */
#define ST_ERROR_ARGUMENT (-1)
/* Returned by ST_ToLowerCase when the folded text does not fit the destination. */
#define ST_ERROR_CAPACITY (-2)

/* Decodes `text` up to its first NUL. Returns a new array of `*count` UTF-16 units without terminator,
 * or null (count 0) for a null text or a failed allocation. An empty text gives a count of 0. */
uint16_t* ST_Utf8ToUtf16(const char* text, int32_t* count);

/* Encodes `count` UTF-16 units as a new NUL-terminated UTF-8 string; null for null units, a negative
 * count or a failed allocation. Unpaired surrogates become U+FFFD. */
char* ST_Utf16ToUtf8(const uint16_t* units, int32_t count);

void ST_FreeUtf16(uint16_t* units); /* null is ignored */
void ST_FreeUtf8(char* text);       /* null is ignored */

/* Unicode case folding without a locale ("ABC" -> "abc", "\u00DF" -> "ss"), written into `destination`
 * without terminator. Returns the number of units written, ST_ERROR_ARGUMENT, or ST_ERROR_CAPACITY (the
 * destination is then left as it was). */
int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity);

/* The per-user application-support folder as a new UTF-8 path without a trailing "/", or null.
 * The folder is not created. */
char* ST_GetAppSupportPath(void);

/* Creates the folder and any missing parents; true when the folder exists afterwards. */
bool ST_CreateDirectory(const char* path);

/* Moves the regular file `from` to the path `to` in one step, replacing any file there: whoever opens `to`
 * finds the old file whole or the new one whole, never a part, and the new file's bytes are on the disk
 * before it takes the old one's place, so that not even a crash of the system leaves `to` half-written.
 * Both paths are UTF-8 and lie in the same folder. False, with both files as they were, when `from` is
 * missing or not a regular file, when `to` is a folder, or when the system refuses. */
bool ST_ReplaceFile(const char* from, const char* to);

/* Lists the items directly inside `folder` (files and sub-folders alike) whose lower-cased names end with
 * the lower-cased `extension`, in the order the system lists them. Returns a new array of `*count` new
 * zero-terminated UTF-16 full paths ("folder/name"), or null with a count of 0 when nothing matches or
 * the folder cannot be listed. */
uint16_t** ST_EnumFiles(const char* folder, const char* extension, int32_t* count);

/* Releases a list from ST_EnumFiles; null is ignored. A negative count is a caller's fault and aborts. */
void ST_FreeEnumFiles(uint16_t** files, int32_t count);

/* A new zeroed block of `bytes` for a page-sized image, or null for 0 bytes or when memory is refused.
 * From 1 MiB on it comes straight from the system's virtual memory instead of the heap, with huge pages
 * asked for where the system has them: nothing has to clear it, and the first touch of a large buffer
 * costs a fraction of what small pages cost. Smaller blocks come from the heap (calloc). Release it with
 * ST_FreePages and the same size, never with free. */
void* ST_AllocatePages(size_t bytes);
/* Releases a block from ST_AllocatePages of `bytes`; null is ignored. */
void ST_FreePages(void* pages, size_t bytes);

#ifdef __cplusplus
}
#endif

#endif /* BRIVANE_BRIDGE_PLATFORMBRIDGE_H */
