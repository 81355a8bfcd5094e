/*
 * NubexEngine: scans still images for kinds of content ("categories") with
 * neural networks running on the CPU, and answers each scan with a compact
 * JSON document.
 *
 * Calling order
 *   1. SetNubexResourceDirectory()   any number of times, optional
 *   2. InitializeNubexEngine()       once (later calls return 0 and do nothing)
 *   3. GetNubexCategories(), GetNubexResourcesDetails(), ScanImage()
 *                                    ScanImage() from any number of threads
 *   4. DeInitializeNubexEngine(-1)
 * GetNubexEngineVersion() and ReleaseNubexMemory() may be called at any time.
 *
 * Threads
 *   Scans may overlap each other. Do not run DeInitializeNubexEngine(),
 *   SetNubexResourceDirectory(), GetNubexResourcesDetails() or
 *   GetNubexCategories() while a scan or another of these calls is running:
 *   they rebuild the engine's registry of resources.
 *
 * Ownership
 *   Every text and array the engine returns was allocated by the engine and
 *   must be given back with ReleaseNubexMemory(). No function keeps a pointer
 *   that the host passed in after it returns.
 *
 * Errors
 *   No function throws or aborts on bad arguments. Problems of a scan are
 *   reported inside its document ("error_code" and "result"); other problems
 *   are written to the console (standard output and standard error) and give
 *   the documented neutral result (an empty text, a count of 0).
 *
 * Resources
 *   Categories and networks come from resource folders found below resource
 *   directories. The default directory is "res/" beside the loaded library;
 *   SetNubexResourceDirectory() adds more.
 *
 * Networks that declare more (opt-in; a network of the fixed form is fed and
 * read exactly as before). A network's IR may carry, in its rt_info section
 * "nubex": "resize" = "letterbox" (a fixed-size classifier, text presence or
 * face input gets the picture scaled uniformly, centred on black margins;
 * face boxes, normalised over the whole input, come back in picture pixels);
 * "stride" (1..1024, default 32: dynamic sizes are rounded to its multiples);
 * "alphabet" (a text recogniser's symbols in class order, one UTF-8 code
 * point each, the blank the class after the last; a reading is then kept
 * when the mean probability of its symbols is at least 0.5). An input whose
 * height and width are dynamic gets the picture (the text detector: the
 * working image) at its own proportions, scaled down only where it exceeds
 * the dimensions' upper bounds, each side rounded to the stride; a recogniser with a fixed
 * height and a dynamic width reads each region at that height and its own
 * width (at most the width's upper bound, else 50 heights), several regions
 * of similar widths per request when its batch is dynamic too (padded on
 * the right with mid-grey 127.5; output [T, N, classes]). No input is fed
 * more than 2^24 values. The README's "Network contracts" gives the details.
 */
#ifndef NUBEX_ENGINE_H
#define NUBEX_ENGINE_H

#include <stdint.h>

/* NUBEX_ENGINE_BUILDING is defined only while the engine itself is compiled. */
#if defined(_WIN32)
#if defined(NUBEX_ENGINE_BUILDING)
#define NUBEX_API __declspec(dllexport)
#else
#define NUBEX_API __declspec(dllimport)
#endif
#else
#define NUBEX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Sets up the inference core (CPU, throughput streams) and registers the
 * resources found so far. Runs once: a second call returns 0 and does nothing.
 * Returns the number of CPU throughput streams, max(logical processors / 4, 1),
 * or 0 when the set-up failed (the engine still counts as initialised then).
 * Networks are not loaded here: each is loaded by the first scan that needs it.
 */
NUBEX_API uint32_t InitializeNubexEngine(void);

/*
 * category == -1: releases every loaded network, shuts the inference core down
 *                 and returns the engine to its uninitialised state; a later
 *                 InitializeNubexEngine() sets it up again.
 * otherwise:      releases the networks of the resource set that serves this
 *                 category; the next scan that needs them loads them again.
 *                 An unknown category does nothing.
 * Must not overlap a scan.
 */
NUBEX_API void DeInitializeNubexEngine(int32_t category);

/*
 * Scans one image.
 *   image      3 bytes per pixel (blue, green, red), top row first; each row is
 *              width * 3 bytes followed by (width % 4) padding bytes.
 *   imageSize  the buffer's size in bytes, or 0 when unknown (the buffer is
 *              then trusted to hold every row). When positive it must cover
 *              height * (width * 3 + width % 4) bytes; a negative size, or a
 *              positive one that is too small, is reported as "Invalid image
 *              data..." and the image is not read.
 *   width, height  in pixels, both at least 1.
 *   categories comma-separated decimal category identifiers, e.g. "14, 21".
 *   scores     out: one float per accepted category, in the order accepted;
 *              provide room for as many floats as the list names.
 *   textScoreThreshold  the text pipeline runs only when the text-presence
 *              score is strictly above this value (percent).
 * Returns the result document (JSON, never NULL); free it with
 * ReleaseNubexMemory(). Its members, in this order:
 *   "scan_result"  (only when the scan ran) [{"<category name>": score}, ...]
 *                  in the order the categories were accepted; scores are
 *                  percentages with at most 4 decimals (cut, not rounded);
 *                  -1 means the category has no calibration record.
 *   "text_details" (only when text was read) one string per line of text:
 *                  "x1,y1,x2,y2,x3,y3,x4,y4,words" where the corners are the
 *                  line's box in image pixels (top-left, top-right,
 *                  bottom-right, bottom-left) and words are the words read on
 *                  that line, left to right, separated by single spaces
 *                  (lower-case letters and digits only). Lines come top to
 *                  bottom; words far apart on one line come as separate lines.
 *   "face_details" (only when faces were found) [{"score": s, "location":
 *                  {"vertices": [top-left, top-right, bottom-left,
 *                  bottom-right]}}] with each vertex {"y": row, "x": column};
 *                  the face square may reach outside the image (negative or
 *                  too large coordinates are not clamped).
 *   "img_width", "img_height"  the size given.
 *   "error_code"   the problems met, as text ("" when none).
 *   "result"       "True" when no problem was met, else "False" (strings).
 */
NUBEX_API char* ScanImage(const uint8_t* image, int32_t imageSize, int32_t width, int32_t height,
                          const char* categories, float* scores, float textScoreThreshold);

/* Returns "Nubex 8.0.9.6 - SDK 64 bit for Windows"; free it with ReleaseNubexMemory(). */
NUBEX_API char* GetNubexEngineVersion(void);

/*
 * Re-reads every resource directory and returns one line per resource set:
 *   "<name>,\t<version>[.<version>...],\t<category>,\t<category>,\t...\r\n"
 * An empty text when there is none; never NULL. Free it with ReleaseNubexMemory().
 */
NUBEX_API char* GetNubexResourcesDetails(void);

/*
 * Lists the scannable categories. *categories receives an array of texts
 * "<identifier>\t<name>" (no line end); the result is their count. Free every
 * text, then the array, with ReleaseNubexMemory(). With a count of 0 the array
 * must not be read (it still is to be freed). Returns 0 when categories is NULL.
 */
NUBEX_API int32_t GetNubexCategories(char*** categories);

/*
 * Adds a resource directory (UTF-8 path; a trailing "/" is optional) and
 * re-reads all directories. Returns the number of resource sets now known.
 * A NULL or empty path is logged and changes nothing.
 */
NUBEX_API uint32_t SetNubexResourceDirectory(const char* directory);

/* Frees a text or array returned by the engine. NULL is ignored. */
NUBEX_API void ReleaseNubexMemory(void* memory);

#ifdef __cplusplus
}
#endif

#endif /* NUBEX_ENGINE_H */
