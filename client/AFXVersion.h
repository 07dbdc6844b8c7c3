#ifndef AFX_VERSION_H
#define AFX_VERSION_H

/// The library's version as a plain literal, so that longer constant strings can be joined from it.
#define AFX_VERSION "1.6.2"

#endif
