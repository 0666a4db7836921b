#import "TKSTexts.h"

#include <tksinterface/c/tksinterface.h>

NSString* TKSTaken(char* text) {
  if (text == NULL) return nil;
  NSString* taken = [NSString stringWithUTF8String:text];
  tks_free(text);
  return taken;
}

const char* TKSUTF8(NSString* text) { return text == nil ? NULL : [text UTF8String]; }
