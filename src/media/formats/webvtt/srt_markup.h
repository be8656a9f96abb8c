// SRT cue text turned into valid WebVTT cue text. SRT files carry HTML-like tags and position
// codes that a WebVTT reader would print literally or misread:
//  - a position code {\an1} to {\an9} (numpad layout: 7 8 9 top, 4 5 6 middle, 1 2 3 bottom)
//    is removed from the text and becomes cue settings; the first valid code of a cue counts;
//  - <b>, <i> and <u> and their end tags stay (written in lower case);
//  - <font color="..."> becomes a class span <c.color_rrggbb> (named colors, #rgb and #rrggbb
//    normalised), with the WebVTT palette class added where the color is one of its eight; a
//    font tag without a usable color is dropped with its end tag; other font attributes are
//    dropped;
//  - any other "<" and every ">" is escaped, so that other tags are shown as text; an "&" that
//    does not begin a character reference WebVTT knows becomes "&amp;";
//  - a line left empty by the rewrite is removed, since an empty line would end the cue.
#pragma once

#include <string>
#include <string_view>

// The cue settings for a position code's digit 1 to 9; empty for 2 (bottom centre, where cues
// go anyway).
std::string_view SrtPositionSettings(int numpad);

// Rewrites one cue. Returns false when the cue needs no change; otherwise `newSettings` receives
// `settings` with the position's settings appended and `newPayload` the rewritten text. Both
// outputs are overwritten in either case, so that their memory can be reused from cue to cue.
// May throw std::bad_alloc.
bool RewriteSrtMarkup(std::string_view settings, std::string_view payload, std::string* newSettings,
                      std::string* newPayload);
