#include "velk/CANTransportThread.h"

void CANTransportThread::prepareData(const unsigned char* /*bytes*/, unsigned int /*length*/) {}
