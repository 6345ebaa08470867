// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef KVFOBLINK_KVEXPORT_H
#define KVFOBLINK_KVEXPORT_H

/* Marks what the shared library exports; all else is built with hidden visibility. KVFOB_LOCAL
   takes a private operation out of an exported class. */
#if defined(__GNUC__)
#define KVFOB_EXPORT __attribute__((visibility("default")))
#define KVFOB_LOCAL __attribute__((visibility("hidden")))
#else
#define KVFOB_EXPORT
#define KVFOB_LOCAL
#endif

#endif /* KVFOBLINK_KVEXPORT_H */
