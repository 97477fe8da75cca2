/* HostApi.h: the host interface as the plug-in sees it, in plain C.
 *
 * The painting host loads the plug-in module, resolves its one entry `TriglavPluginCall` and calls it
 * with a selector and a `Server` record. Everything the plug-in may ask of the host hangs off that
 * record: a suite of three records that belong to the current phase (module initialise, filter
 * initialise, filter run) and a suite of services (strings, properties, offscreens, bitmaps). Each
 * record and service is a table of function pointers, so a host written in any language, like our
 * simulated host in tools/host/, can fill one in.
 *
 *   void TriglavPluginCall(int64_t* result, void** slot, int64_t selector, Server* server, void*);
 *
 *   const HostFilterRunRecord* run = server->recordSuite->filterRunRecord;
 *   int64_t answer = kHostProcessAnswerExit;
 *   run->process(server->hostObject, kHostProcessStateStart, &answer);
 *
 * Conventions of this interface:
 * - Every operation returns a HostResult and hands values back through out-parameters. The plug-in
 *   never looks at the result (a host that cannot answer simply leaves the out-parameter alone), so it
 *   sets every out-parameter to a safe value before the call.
 * - Handles (strings, property objects, offscreens, bitmaps) and the host object are opaque pointers
 *   owned by the host. A string or bitmap the plug-in created is released by the plug-in.
 * - Whole numbers are 64-bit; booleans travel as HostBool (0 or 1); text as 8-bit bytes or UTF-16
 *   code units with an explicit length, never relying on a terminating 0.
 * - The plug-in never hands the host a null handle, with one exception: the caption of an item and the
 *   text of a list row may be null when the host could not make the string; the host then shows the
 *   item or row without text.
 * - A null record, service or function pointer means the host does not offer it; the plug-in then
 *   skips the call.
 */
#ifndef BRIVANE_HOST_HOSTAPI_H
#define BRIVANE_HOST_HOSTAPI_H

#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Basic types ------------------------------------------------------------------------------ */

typedef int32_t HostResult; /* kHostResultOk or an error code; informative only */
typedef int32_t HostBool;   /* 0 false, 1 true */

typedef struct HostObjectTag* HostObject;       /* the host's context of the current call */
typedef struct HostStringTag* HostString;       /* immutable host text */
typedef struct HostOffscreenTag* HostOffscreen; /* an image owned by the host (layer, selection) */
typedef struct HostBitmapTag* HostBitmap;       /* a pixel buffer created for the plug-in */
typedef struct _Property _Property;             /* the property object that backs the filter's panel */

typedef int64_t ProcessState; /* a kHostProcessState... value */
typedef int64_t PointDefault; /* a kHostPointDefault... value */

typedef struct HostPoint {
    int64_t x; /* canvas pixels */
    int64_t y; /* canvas pixels */
} HostPoint;

typedef struct HostRect {
    int64_t left;   /* pixels, inclusive */
    int64_t top;    /* pixels, inclusive */
    int64_t right;  /* pixels, exclusive */
    int64_t bottom; /* pixels, exclusive */
} HostRect;

typedef struct HostColor {
    uint8_t red;
    uint8_t green;
    uint8_t blue;
} HostColor;

/* ---- Codes ------------------------------------------------------------------------------------ */

enum {
    kHostResultOk = 0,
    kHostResultFailed = -1,     /* the host could not do it (unknown item, bad handle ...) */
    kHostResultBadArgument = -2 /* a required pointer was null or a value out of range */
};

/* Selectors of the entry point. */
enum {
    kHostSelectorModuleInitialize = 0x101,
    kHostSelectorModuleTerminate = 0x102,
    kHostSelectorFilterInitialize = 0x201,
    kHostSelectorFilterRun = 0x202,
    kHostSelectorFilterTerminate = 0x203
};

/* Results the entry writes. */
enum { kHostCallSucceeded = 0, kHostCallFailed = -1 };

/* Module kind given at registration: the module provides a filter. */
enum { kHostModuleKindFilter = 0x4380 };

/* What the plug-in tells the host through the filter-run record's process operation ... */
enum {
    kHostProcessStateStart = 0x101,    /* a pass begins */
    kHostProcessStateContinue = 0x102, /* still drawing: may I go on? */
    kHostProcessStateEnd = 0x103       /* the pass is done */
};
/* ... and what the host answers. */
enum {
    kHostProcessAnswerContinue = 0x101,
    kHostProcessAnswerRestart = 0x102, /* parameters changed: read them again and redraw */
    kHostProcessAnswerExit = 0x103     /* stop: the user cancelled or closed the filter */
};

/* Kinds of layer the filter can work on (set target kinds). */
enum {
    kHostTargetKindRgbAlpha = 0x101,  /* colour layer, channel order 3 */
    kHostTargetKindGrayAlpha = 0x102, /* grey layer, channel order 2 */
    kHostTargetKindRgba = 0x103,      /* colour layer with free channel positions, channel order 4 */
    kHostTargetKindAlpha = 0x104,     /* coverage-only layer, channel order 5 */
    kHostTargetKindSelection = 0x105, /* the selection itself, channel order 5 */
    kHostTargetKindMask = 0x106       /* mask layer drawn in black or white, channel order 6 */
};
/* The six target kinds, in bit order: bit i of a layer-mode mask selects kHostTargetKindRgbAlpha + i. */
enum { kHostTargetKindCount = 6 };

/* Pixel layouts of a host offscreen (offscreen service, channel order). */
enum {
    kHostChannelOrderGrayAlpha = 2, /* grey, alpha */
    kHostChannelOrderRgbAlpha = 3,  /* red, green, blue at host-given indices; alpha last */
    kHostChannelOrderRgba = 4,      /* red, green, blue and alpha at host-given indices */
    kHostChannelOrderAlpha = 5,     /* one coverage byte */
    kHostChannelOrderMask = 6       /* grey, alpha of a black-or-white mask layer */
};

/* Pixel layouts of a bitmap the plug-in creates (bitmap service, create). */
enum {
    kHostChannelCodeAlpha = 1,     /* 1 byte a pixel */
    kHostChannelCodeGrayAlpha = 2, /* 2 bytes a pixel */
    kHostChannelCodeRgbAlpha = 4,  /* 4 bytes a pixel, alpha last */
    kHostChannelCodeRgba = 5       /* 4 bytes a pixel */
};

/* Row arrangement of a created bitmap: top row first. */
enum { kHostScanlineTopDown = 16 };

/* Copy mode of the offscreen service's copy operations: plain copy. */
enum { kHostCopyModeReplace = 1 };

/* Value kinds of property items. */
enum {
    kHostValueKindBoolean = 1,
    kHostValueKindEnumeration = 2,
    kHostValueKindInteger = 17,
    kHostValueKindDecimal = 18,
    kHostValueKindPoint = 33
};

/* The two further codes of an added item: how the host shows it and how the user edits it. */
enum { kHostItemDisplayDefault = 17 };
enum { kHostItemInputDefault = 17, kHostItemInputCanvas = 49 /* dragged on the canvas */ };

/* Where the host places a canvas point until it is set, and how far it may move. */
enum { kHostPointDefaultCentre = 37 };
enum { kHostPointLimitCanvas = 34 };

/* Property notifications and the callback's results. */
enum { kHostNotifyValueChanged = 17, kHostNotifyButtonPushed = 33 };
enum { kHostPropertyUnchanged = 1, kHostPropertyModified = 2 /* the result must be redrawn */ };

/* ---- Callbacks and the entry ------------------------------------------------------------------ */

/* Called by the host when the user changes an item or pushes a button; writes a kHostProperty... code
 * into *result. */
typedef void (*HostPropertyCallbackProc)(int64_t* result, _Property* property, int64_t itemKey,
                                         int64_t notification, void* userData);

struct Server;

/* The module's entry: writes kHostCallSucceeded or kHostCallFailed into *result; *slot keeps the
 * plug-in's data between calls, null before module initialise. */
typedef void (*TriglavPluginCallProc)(int64_t* result, void** slot, int64_t selector, struct Server* server,
                                      void* reserved);

/* ---- Records: what belongs to the current phase ----------------------------------------------- */

typedef struct HostModuleInitRecord {
    HostResult (*getHostVersion)(HostObject host, int64_t* version);
    HostResult (*setModuleId)(HostObject host, HostString id);
    HostResult (*setModuleKind)(HostObject host, int64_t kind);
} HostModuleInitRecord;

typedef struct HostFilterInitRecord {
    HostResult (*setFilterCategoryName)(HostObject host, HostString name, char accessKey);
    HostResult (*setFilterName)(HostObject host, HostString name, char accessKey);
    HostResult (*setCanPreview)(HostObject host, HostBool canPreview);
    HostResult (*setUseEmptyArea)(HostObject host, HostBool useEmptyArea);
    HostResult (*setTargetKinds)(HostObject host, const int64_t* kinds, int64_t count);
    HostResult (*setProperty)(HostObject host, _Property* property);
    HostResult (*setPropertyCallback)(HostObject host, HostPropertyCallbackProc callback, void* userData);
} HostFilterInitRecord;

typedef struct HostFilterRunRecord {
    HostResult (*process)(HostObject host, ProcessState state, int64_t* answer);
    HostResult (*getSourceOffscreen)(HostObject host, HostOffscreen* offscreen);
    HostResult (*getDestinationOffscreen)(HostObject host, HostOffscreen* offscreen);
    HostResult (*hasSelection)(HostObject host, HostBool* present);
    HostResult (*getSelectionOffscreen)(HostObject host, HostOffscreen* offscreen);
    HostResult (*updateDestinationArea)(HostObject host, const HostRect* area);
    HostResult (*setProgressTotal)(HostObject host, int64_t total);
    HostResult (*setProgressValue)(HostObject host, int64_t value);
    HostResult (*getResolution)(HostObject host, double* dotsPerInch);
    HostResult (*getCanvasWidth)(HostObject host, int64_t* width);
    HostResult (*getCanvasHeight)(HostObject host, int64_t* height);
    HostResult (*getMainColor)(HostObject host, HostColor* color, uint8_t* alpha);
} HostFilterRunRecord;

/* Only the record of the current phase need be set. */
typedef struct HostRecordSuite {
    const HostModuleInitRecord* moduleInitRecord;
    const HostFilterInitRecord* filterInitRecord;
    const HostFilterRunRecord* filterRunRecord;
} HostRecordSuite;

/* ---- Services --------------------------------------------------------------------------------- */

typedef struct HostStringService {
    HostResult (*createWithBytes)(HostString* out, const char* text, int64_t length);
    HostResult (*createWithUtf16)(HostString* out, const char16_t* text, int64_t length);
    HostResult (*createWithResourceId)(HostString* out, int64_t id, HostObject host);
    /* The characters stay valid until the string is released. */
    HostResult (*getUtf16Chars)(HostString string, const char16_t** chars);
    HostResult (*getUtf16Length)(HostString string, int64_t* length);
    HostResult (*release)(HostString string);
} HostStringService;

/* Property object, item creation, and boolean, integer and decimal items. */
typedef struct HostPropertyService {
    HostResult (*create)(HostObject host, _Property** out);
    HostResult (*release)(_Property* property);
    HostResult (*addItem)(_Property* property, int64_t itemKey, int64_t valueKind, int64_t displayKind,
                          int64_t inputKind, HostString caption, char accessKey);

    HostResult (*setBooleanValue)(_Property* property, int64_t itemKey, HostBool value);
    HostResult (*getBooleanValue)(_Property* property, int64_t itemKey, HostBool* value);
    HostResult (*setBooleanDefault)(_Property* property, int64_t itemKey, HostBool value);
    HostResult (*getBooleanDefault)(_Property* property, int64_t itemKey, HostBool* value);

    HostResult (*setIntegerValue)(_Property* property, int64_t itemKey, int64_t value);
    HostResult (*getIntegerValue)(_Property* property, int64_t itemKey, int64_t* value);
    HostResult (*setIntegerDefault)(_Property* property, int64_t itemKey, int64_t value);
    HostResult (*getIntegerDefault)(_Property* property, int64_t itemKey, int64_t* value);
    HostResult (*setIntegerMinimum)(_Property* property, int64_t itemKey, int64_t value);
    HostResult (*setIntegerMaximum)(_Property* property, int64_t itemKey, int64_t value);

    HostResult (*setDecimalValue)(_Property* property, int64_t itemKey, double value);
    HostResult (*getDecimalValue)(_Property* property, int64_t itemKey, double* value);
    HostResult (*setDecimalDefault)(_Property* property, int64_t itemKey, double value);
    HostResult (*getDecimalDefault)(_Property* property, int64_t itemKey, double* value);
    HostResult (*setDecimalMinimum)(_Property* property, int64_t itemKey, double value);
    HostResult (*setDecimalMaximum)(_Property* property, int64_t itemKey, double value);
} HostPropertyService;

/* Enumeration (list) and point items. */
typedef struct HostPointEnumPropertyService {
    HostResult (*addEnumerationItem)(_Property* property, int64_t itemKey, int64_t value, HostString text,
                                     char accessKey);
    HostResult (*setEnumerationValue)(_Property* property, int64_t itemKey, int64_t value);
    HostResult (*getEnumerationValue)(_Property* property, int64_t itemKey, int64_t* value);
    HostResult (*setEnumerationDefault)(_Property* property, int64_t itemKey, int64_t value);
    HostResult (*getEnumerationDefault)(_Property* property, int64_t itemKey, int64_t* value);

    HostResult (*setPointValue)(_Property* property, int64_t itemKey, const HostPoint* value);
    HostResult (*getPointValue)(_Property* property, int64_t itemKey, HostPoint* value);
    HostResult (*setPointDefaultKind)(_Property* property, int64_t itemKey, PointDefault kind);
    HostResult (*setPointLimitKind)(_Property* property, int64_t itemKey, int64_t kind);
} HostPointEnumPropertyService;

typedef struct HostOffscreenService {
    HostResult (*getWidth)(HostOffscreen offscreen, int64_t* width);
    HostResult (*getHeight)(HostOffscreen offscreen, int64_t* height);
    HostResult (*getChannelOrder)(HostOffscreen offscreen, int64_t* order);
    HostResult (*getRgbChannelIndex)(HostOffscreen offscreen, int64_t* red, int64_t* green, int64_t* blue);
    HostResult (*getRgbaChannelIndex)(HostOffscreen offscreen, int64_t* red, int64_t* green, int64_t* blue,
                                      int64_t* alpha);
    /* Both copies name the bitmap and its position first, then the offscreen and its position. */
    HostResult (*copyToBitmap)(HostBitmap bitmap, const HostPoint* bitmapPosition, HostOffscreen offscreen,
                               const HostPoint* offscreenPosition, int64_t width, int64_t height,
                               int64_t mode);
    HostResult (*copyFromBitmap)(HostBitmap bitmap, const HostPoint* bitmapPosition, HostOffscreen offscreen,
                                 const HostPoint* offscreenPosition, int64_t width, int64_t height,
                                 int64_t mode);
} HostOffscreenService;

typedef struct HostBitmapService {
    HostResult (*create)(HostBitmap* out, int64_t width, int64_t height, int64_t channelCode,
                         int64_t scanline);
    HostResult (*getRowBytes)(HostBitmap bitmap, int64_t* rowBytes);
    HostResult (*getDepth)(HostBitmap bitmap, int64_t* bytesPerPixel);
    HostResult (*getAddress)(HostBitmap bitmap, const HostPoint* position, void** address);
    HostResult (*release)(HostBitmap bitmap);
} HostBitmapService;

typedef struct HostServiceSuite {
    const HostStringService* stringService;
    const HostPropertyService* propertyService;
    const HostPointEnumPropertyService* pointEnumPropertyService;
    const HostOffscreenService* offscreenService;
    const HostBitmapService* bitmapService;
} HostServiceSuite;

/* ---- The server record handed to every call --------------------------------------------------- */

typedef struct Server {
    const HostRecordSuite* recordSuite; /* head of the record */
    const HostServiceSuite* serviceSuite;
    HostObject hostObject; /* first argument of the records' operations */
} Server;

#ifdef __cplusplus
}
#endif

#endif /* BRIVANE_HOST_HOSTAPI_H */
