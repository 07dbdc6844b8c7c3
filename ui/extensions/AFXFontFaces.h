//
// The faces that stand for a weight. Plain C++: no platform object.
//

#ifndef AFX_FONT_FACES_H
#define AFX_FONT_FACES_H

/// The legacy face of each weight from 0 to 8. Semibold shares the medium face, and the two
/// heaviest are condensed ones: the family has no others.
inline constexpr const char *AFXLegacyFaces[] = {
    "HelveticaNeue-UltraLight",     "HelveticaNeue-Thin",
    "HelveticaNeue-Light",          "HelveticaNeue",
    "HelveticaNeue-Medium",         "HelveticaNeue-Medium",
    "HelveticaNeue-Bold",           "HelveticaNeue-CondensedBold",
    "HelveticaNeue-CondensedBlack",
};

constexpr const char *AFXLegacyFace(unsigned long weight) {
  return weight < sizeof(AFXLegacyFaces) / sizeof(AFXLegacyFaces[0]) ? AFXLegacyFaces[weight]
                                                                     : "HelveticaNeue";
}

/// The monospaced family has three faces only.
constexpr const char *AFXMonospacedFace(unsigned long weight) {
  return weight == 3 ? "RobotoMono-Regular" : weight == 6 ? "RobotoMono-Bold" : "RobotoMono-Medium";
}

#endif
