#pragma once
// Process-wide state of the library: the scratch document's lock.
#include <boost/thread/mutex.hpp>

namespace tarn {
namespace detail {

// Guards g_tempDoc while it holds a node (XmlNode::SerializeOuterXml); nothing else takes it.
boost::mutex& tempDocMutex();

} // namespace detail
} // namespace tarn
