#ifndef KVFOBLINK_KVEXPORT_H
#define KVFOBLINK_KVEXPORT_H

/* Marks what the shared library exports; all else is built with hidden visibility. */
#if defined(__GNUC__)
#define KVFOB_EXPORT __attribute__((visibility("default")))
#else
#define KVFOB_EXPORT
#endif

#endif /* KVFOBLINK_KVEXPORT_H */
