// Where in the picture, as angles: how far the view must turn until a rectangle of the analysis picture
// stands in its middle. Pure functions: any thread, no state.
//
// The lens shows a plane: a point that lies `d` half pictures beside the middle is seen under the angle
// atan(d * half / distance), of half a picture and the distance at which it is seen. The two axes
// deliberately have numbers of their own, those that the camera's lens was measured with: the picture's
// right edge is 44 degrees away, the bottom 23.
#ifndef MOTION_ANGLE_H
#define MOTION_ANGLE_H

// Whole degrees from the middle of the 320x192 picture, (160, 96), to the middle of the rectangle, in
// pixels, x2 and y2 exclusive: right and down are positive. To the nearest degree for positive angles;
// deliberately 0.5 is added to negative ones too before they are cut off toward zero, so that -10.7 is -10
// where 10.7 is 11. 0, or -1 with an error line and nothing written when an output is null.
int cal_h_v_degree(int *h_out, int *v_out, int x1, int y1, int x2, int y2);

// An angle in whole degrees, spread for a motor that falls short of what it is asked: by straight pieces
// through
//   angle   10  20  25  30  35  45  50  60
//   result  20  30  40  50  60  70  80  90
// cut off toward zero; below 10 it is 20, from 60 on 90. The sign stays; that of 0 is positive. Nothing in
// the daemon calls it: it is for the motor's side.
int angle_h_dst_cal(int angle);

#endif
