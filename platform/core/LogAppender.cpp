#include "LogAppender.h"

LogAppender::LogAppender(int threshold) : threshold(threshold) {}

LogAppender::~LogAppender() = default;
