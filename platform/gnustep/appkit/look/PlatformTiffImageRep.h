#ifndef PLATFORM_APPKIT_LOOK_PLATFORMTIFFIMAGEREP_H
#define PLATFORM_APPKIT_LOOK_PLATFORMTIFFIMAGEREP_H

#import <AppKit/NSBitmapImageRep.h>

/// A picture of a TIFF file whose pixels are read when they are first asked for: of an image for
/// several resolutions only one is ever drawn. What cannot be read is transparent.
@interface PlatformTiffImageRep : NSBitmapImageRep {
 @private
  NSData *_file;  // nil once the pixels have been read.
  NSUInteger _index;
  BOOL _isUnread;
}

/// One for each picture of the file, in its order; nil when the toolkit has to read them.
///
/// @param data  Is copied.
+ (NSArray *)platformRepsWithData:(NSData *)data;

@end

#endif
