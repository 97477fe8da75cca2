// Foundation version of the platform bridge (macOS): NSFileManager for the folders, NSString for paths
// and case folding, rename(2) to replace a file, mmap for page-sized blocks. Transcoding and the release
// functions are shared by every system (BridgeText.cpp, BridgePages.cpp).
// Built against GNUstep Base on Linux as well, where the contract tests run it.
#import <Foundation/Foundation.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bridge/BridgePages.h"
#include "bridge/BridgeText.h"
#include "bridge/FullCaseFolding.h"
#include "bridge/PlatformBridge.h"

using namespace brivane::bridge;

// Anonymous mappings come zeroed; the system picks the page size.
void* brivane::bridge::MapPages(std::size_t bytes) {
    void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages == MAP_FAILED ? nullptr : pages;
}

void brivane::bridge::UnmapPages(void* pages, std::size_t bytes) {
    munmap(pages, bytes);
}

#if defined(GNUSTEP)
// GNUstep Base (1.28) lacks two of the methods the bridge uses; these give what Foundation gives, from
// what GNUstep has. Foundation's own methods are used wherever it is the real thing.
@interface NSFileManager (BrivaneStandIn)
- (NSArray*)URLsForDirectory:(NSSearchPathDirectory)directory inDomains:(NSSearchPathDomainMask)domains;
@end

@implementation NSFileManager (BrivaneStandIn)
- (NSArray*)URLsForDirectory:(NSSearchPathDirectory)directory inDomains:(NSSearchPathDomainMask)domains {
    NSArray* paths = NSSearchPathForDirectoriesInDomains(directory, domains, YES);
    NSMutableArray* urls = [NSMutableArray array];
    for (NSUInteger i = 0; i < [paths count]; ++i)
        [urls addObject:[NSURL fileURLWithPath:[paths objectAtIndex:i] isDirectory:YES]];
    return urls;
}
@end

@interface NSString (BrivaneStandIn)
- (NSString*)stringByFoldingWithOptions:(NSUInteger)options locale:(id)locale;
@end

@implementation NSString (BrivaneStandIn)
// Case-insensitive folding only (the one option the bridge asks for): each character lower-cased on
// its own, so that no context rule such as final sigma applies, and the full foldings from the table.
- (NSString*)stringByFoldingWithOptions:(NSUInteger)options locale:(id)locale {
    (void)options;
    (void)locale;
    std::u16string text([self length], u'\0');
    [self getCharacters:reinterpret_cast<unichar*>(text.data()) range:NSMakeRange(0, [self length])];
    std::u16string folded;
    FoldWithTable(RepairUtf16(reinterpret_cast<const uint16_t*>(text.data()), text.size()), folded,
                  [](const std::u16string& run, std::u16string& out) {
                      ForEachCodePoint(run, [&out](char32_t c) {
                          std::u16string one;
                          AppendCodePoint(one, c);
                          NSString* lower =
                              [[NSString stringWithCharacters:reinterpret_cast<const unichar*>(one.data())
                                                       length:one.size()] lowercaseString];
                          const std::size_t start = out.size();
                          out.resize(start + [lower length]);
                          [lower getCharacters:reinterpret_cast<unichar*>(out.data() + start)
                                         range:NSMakeRange(0, [lower length])];
                      });
                      return true;
                  });
    return [NSString stringWithCharacters:reinterpret_cast<const unichar*>(folded.data())
                                   length:folded.size()];
}
@end
#endif

namespace {

// Autoreleased objects made by one bridge call go when the call returns.
class AutoreleasePool {
public:
    AutoreleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}
    ~AutoreleasePool() { [pool_ drain]; }
    AutoreleasePool(const AutoreleasePool&) = delete;
    AutoreleasePool& operator=(const AutoreleasePool&) = delete;

private:
    NSAutoreleasePool* pool_;
};

NSString* StringFromUnits(const std::u16string& units) {
    return [NSString stringWithCharacters:reinterpret_cast<const unichar*>(units.data()) length:units.size()];
}

// From the repaired UTF-16, so that bytes that are not UTF-8 never make NSString give nil.
NSString* StringFromUtf8(const char* text) {
    return StringFromUnits(DecodeUtf8(text, std::strlen(text)));
}

std::u16string UnitsFromString(NSString* text) {
    std::u16string units([text length], u'\0');
    [text getCharacters:reinterpret_cast<unichar*>(units.data()) range:NSMakeRange(0, [text length])];
    return units;
}

// Unicode lower-casing, as the listing compares names and extensions.
std::u16string LowerCase(NSString* text) {
    return UnitsFromString([text lowercaseString]);
}

}  // namespace

extern "C" {

int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity) {
    if (source == nullptr || destination == nullptr || count < 0 || capacity < 0) return ST_ERROR_ARGUMENT;
    if (count == 0) return 0;
    AutoreleasePool pool;
    @try {
        NSString* text = StringFromUnits(RepairUtf16(source, static_cast<std::size_t>(count)));
        const std::u16string folded = UnitsFromString([text stringByFoldingWithOptions:NSCaseInsensitiveSearch
                                                                                locale:nil]);
        if (folded.size() > static_cast<std::size_t>(capacity)) return ST_ERROR_CAPACITY;
        std::memcpy(destination, folded.data(), folded.size() * sizeof(uint16_t));
        return static_cast<int32_t>(folded.size());
    } @catch (NSException*) {
        return ST_ERROR_ARGUMENT;
    }
}

char* ST_GetAppSupportPath(void) {
    AutoreleasePool pool;
    @try {
        NSArray* urls = [[NSFileManager defaultManager] URLsForDirectory:NSApplicationSupportDirectory
                                                               inDomains:NSUserDomainMask];
        if ([urls count] == 0) return nullptr;
        NSString* path = [[urls objectAtIndex:0] path];
        if (path == nil) return nullptr;
        return CopyToMalloc(EncodeUtf8(UnitsFromString(path)));
    } @catch (NSException*) {
        return nullptr;
    }
}

bool ST_CreateDirectory(const char* path) {
    if (path == nullptr || path[0] == '\0') return false;
    AutoreleasePool pool;
    @try {
        NSFileManager* files = [NSFileManager defaultManager];
        NSString* folder = StringFromUtf8(path);
        NSURL* url = [NSURL fileURLWithPath:folder isDirectory:YES];
        if (![files createDirectoryAtURL:url withIntermediateDirectories:YES attributes:nil error:nullptr])
            return false;
        // GNUstep also reports success when a regular file stands at the path; the contract is a folder.
        BOOL isFolder = NO;
        return [files fileExistsAtPath:folder isDirectory:&isFolder] && isFolder;
    } @catch (NSException*) {
        return false;
    }
}

bool ST_ReplaceFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return false;
    AutoreleasePool pool;
    @try {
        NSFileManager* files = [NSFileManager defaultManager];
        NSString* source = StringFromUtf8(from);
        NSString* target = StringFromUtf8(to);
        BOOL isFolder = YES;
        if (![files fileExistsAtPath:source isDirectory:&isFolder] || isFolder) return false;
        if ([files fileExistsAtPath:target isDirectory:&isFolder] && isFolder) return false;
        const char* sourcePath = [files fileSystemRepresentationWithPath:source];
        const char* targetPath = [files fileSystemRepresentationWithPath:target];
        // The bytes first, then the name, so that a crash of the system cannot leave the target empty.
        const int file = open(sourcePath, O_RDONLY);
        if (file < 0) return false;
#if defined(F_FULLFSYNC)
        // On macOS fsync leaves the data in the drive's own cache; F_FULLFSYNC does not.
        const bool synced = fcntl(file, F_FULLFSYNC) == 0 || fsync(file) == 0;
#else
        const bool synced = fsync(file) == 0;
#endif
        close(file);
        // NSFileManager's moves refuse an existing target; rename(2) replaces it in one step.
        return synced && std::rename(sourcePath, targetPath) == 0;
    } @catch (NSException*) {
        return false;
    }
}

uint16_t** ST_EnumFiles(const char* folder, const char* extension, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (folder == nullptr || extension == nullptr) return nullptr;
    AutoreleasePool pool;
    @try {
        NSString* base = StringFromUtf8(folder);
        const std::u16string wanted = LowerCase(StringFromUtf8(extension));
        NSArray* names = [[NSFileManager defaultManager] contentsOfDirectoryAtPath:base error:nullptr];
        if (names == nil) return nullptr;
        std::vector<std::u16string> paths;
        for (NSUInteger i = 0; i < [names count]; ++i) {
            NSString* name = [names objectAtIndex:i];
            // Compared as UTF-16 text, so that an empty extension matches every name.
            if (!EndsWith(LowerCase(name), wanted)) continue;
            paths.push_back(UnitsFromString([base stringByAppendingPathComponent:name]));
            if (paths.size() == static_cast<std::size_t>(INT32_MAX)) break;
        }
        return CopyListToMalloc(paths, count);
    } @catch (NSException*) {
        return nullptr;
    }
}

}  // extern "C"
