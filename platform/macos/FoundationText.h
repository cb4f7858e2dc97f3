#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

namespace nodo {

/// `text` for the system; nil when it is absent or no UTF-8. Autoreleased.
inline NSString* systemText(const std::optional<std::string>& text) {
  return text ? [[[NSString alloc] initWithBytes:text->data()
                                          length:text->size()
                                        encoding:NSUTF8StringEncoding] autorelease]
              : nil;
}

/// `text` from the system; absent when it is nil or has no UTF-8 form (a half of a surrogate pair).
inline std::optional<std::string> textFrom(NSString* text) {
  NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
  if (bytes == nil) {
    return std::nullopt;
  }
  return std::string(static_cast<const char*>([bytes bytes]), [bytes length]);
}

}  // namespace nodo
