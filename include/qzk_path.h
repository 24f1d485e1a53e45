/*
 * qzk_path: watching folders for changes.
 *
 * Conventions as in qzk_basic.h. A watcher belongs to the caller and is given
 * back with qz_folder_watcher_destroy.
 */
#ifndef QZK_PATH_H
#define QZK_PATH_H

#include "qzk_basic.h"

#if defined(QZK_PATH_BUILD)
#define QZ_PATH_API __attribute__((visibility("default")))
#else
#define QZ_PATH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the qzk libraries, "major.minor.patch". */
QZ_PATH_API const char* qz_path_version(void);

/* ---- Folder watcher ------------------------------------------------------------ */

/* Watches one folder (not its subfolders). For any change in the folder (a
 * file written, created, removed, renamed, its attributes changed) the
 * watcher's channel broadcasts, on the watcher thread, an event with
 * "event" = QZ_EVENT_FOLDER_CHANGE and the string entry "name", the file's
 * name in system text ("" when the kernel could not say which file: the
 * folder itself was removed or moved, or the kernel's queue overflowed, which
 * every watcher hears of). Changes that come in a burst are gathered: once
 * the folder has been quiet for a tenth of a second (at most half a second
 * after the first change), each changed name is broadcast once, in the order
 * the names first changed.
 *
 * All watchers of the process share one watcher thread and one inotify
 * instance, whatever their number. The thread starts with the first watcher
 * and ends with the last one; it takes no process signals. A slow callback
 * holds up the events of every watcher. */
typedef struct Iqz_folder_watcher Iqz_folder_watcher;

/* Starts watching `folder`; null when it cannot be watched (missing, not a
 * folder, no permission, no watches left). No flags are defined: pass 0. */
QZ_PATH_API Iqz_folder_watcher* qz_folder_watcher_create(const wchar_t* folder, unsigned int flags);
/* The channel of the watcher's events; it belongs to the watcher. */
QZ_PATH_API Iqz_event_channel* qz_folder_watcher_get_events(Iqz_folder_watcher* w);
/* Stops the watcher and frees it. Returns when no callback of the watcher
 * runs or can start any more: a callback running on the watcher thread is
 * waited for. Called from inside one of the watcher's own callbacks, it
 * returns at once; no further callback starts, and the watcher is freed when
 * the running broadcast is over. A callback may create and destroy other
 * watchers too. Destroying the last watcher ends the thread: before it
 * returns, or, from inside a callback, once that callback is over. */
QZ_PATH_API void qz_folder_watcher_destroy(Iqz_folder_watcher* w);

#ifdef __cplusplus
}
#endif

#endif /* QZK_PATH_H */
