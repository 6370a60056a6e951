// Symbol visibility for libzustd. The library is built with hidden visibility; every public
// class and function is marked ZUSTD_API so that exactly the library's interface is exported.
#ifndef ZUSTD_ZU_EXPORT_H
#define ZUSTD_ZU_EXPORT_H

#define ZUSTD_API __attribute__((visibility("default")))

#endif  // ZUSTD_ZU_EXPORT_H
