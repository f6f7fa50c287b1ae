// The image toolkit of the device: a category on UIImage and two scaling helpers. Nothing in the
// tweak calls them yet; they are kept for scripts' future image work and for other code loaded
// into SpringBoard that wants the same conversions.
#pragma once

#import <UIKit/UIKit.h>

@interface UIImage (Extension)
// The colour of the pixel at `point` (image coordinates, top left origin); nil outside the image.
- (UIColor*)colorAtPixel:(CGPoint)point;
// `image` redrawn into a bitmap of its own colour space (8 bits per component, alpha premultiplied
// last); nil when no memory or no context could be had.
- (UIImage*)processImage:(UIImage*)image;
// The part of the receiver inside `rect` (pixels), as a new image of that size.
- (UIImage*)getSubImage:(CGRect)rect;
// The receiver scaled to fit `size` keeping its proportions, centred, in an image of `size`.
- (UIImage*)scaleToSize:(CGSize)size;
// An image of `size` pixels over `bytes` (4 bytes a pixel, alpha premultiplied first, device RGB).
// Frees `bytes` (malloc'd) in every case.
+ (UIImage*)imageWithBytes:(unsigned char*)bytes withSize:(CGSize)size;
// The pixels of `image` as 4 bytes each (alpha premultiplied first, device RGB), rows top to bottom.
+ (NSData*)bytesFromImage:(UIImage*)image;
// bytesFromImage: of the receiver.
- (NSData*)bytes;
@end

namespace tactora::ios {

// `image` drawn at the given width and its own height (stretched horizontally only).
UIImage* imageWithImageScaledToWidth(UIImage* image, float width);
// `image` drawn with both sides multiplied by width / its width.
UIImage* imageWithImage2ScaledToWidth(UIImage* image, float width);

}  // namespace tactora::ios
