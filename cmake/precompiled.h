// The headers that nearly every source file of the library includes and that cost the most to read.
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Refcounted_Auto_Ptr.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>
