// The four pictures of the consent window, each a complete TIFF file with a 1x and a 2x image.
//
// The bytes are constants of the module: they may be read on any thread, are never freed, and no
// file stands behind them at run time. `-[NSImage initWithData:]` makes of each an image of the
// size in points given here.

#ifndef AFX_PICTURES_H
#define AFX_PICTURES_H

#include <cstddef>

/// Lengths of the files in bytes.
constexpr std::size_t AFXEnvelopeLightPictureLength = 82334;
constexpr std::size_t AFXEnvelopeDarkPictureLength = 52918;
constexpr std::size_t AFXCloseLightPictureLength = 7844;
constexpr std::size_t AFXCloseDarkPictureLength = 7758;

// Nothing of this leaves the module.
#pragma GCC visibility push(hidden)

/// The envelope behind the host's icon, for the light look: 214 × 149 points.
extern const unsigned char AFXEnvelopeLightPicture[AFXEnvelopeLightPictureLength];

/// The envelope for the dark look: 213 × 149 points, one narrower than the light one.
extern const unsigned char AFXEnvelopeDarkPicture[AFXEnvelopeDarkPictureLength];

/// The close mark for the light look: 12 × 12 points.
extern const unsigned char AFXCloseLightPicture[AFXCloseLightPictureLength];

/// The close mark for the dark look: 12 × 12 points.
extern const unsigned char AFXCloseDarkPicture[AFXCloseDarkPictureLength];

#pragma GCC visibility pop

#endif
