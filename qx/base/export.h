// export.h - the mark of everything that the DLL exports.
#pragma once

#if defined(QX_BUILDING)
#define QX_API __declspec(dllexport)
#else
#define QX_API __declspec(dllimport)
#endif
