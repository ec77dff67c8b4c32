// The purge server is told, over XML-RPC, what the machine has just
// dispensed.
#include <flxmlrpc/XmlRpc.h>

#include <string>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_psrv";

// XmlRpc++ reports transport errors on standard error; during our call
// they are dropped, since the failure is traced once by the caller.
class QuietErrors : public XmlRpc::XmlRpcErrorHandler {
 public:
  void error(const char*) override {}
};

class ScopedQuietErrors {
 public:
  ScopedQuietErrors() : previous_(XmlRpc::XmlRpcErrorHandler::getErrorHandler()) {
    XmlRpc::XmlRpcErrorHandler::setErrorHandler(&quiet_);
  }
  ~ScopedQuietErrors() { XmlRpc::XmlRpcErrorHandler::setErrorHandler(previous_); }

 private:
  QuietErrors quiet_;
  XmlRpc::XmlRpcErrorHandler* previous_;
};

// XmlRpc++ connects again and sends the request a second time when the
// connection breaks before any answer came; the server may have taken the
// first request already, and one dispense must be reported once. This
// client connects once: a break is a failed call.
class OneRequestClient : public XmlRpc::XmlRpcClient {
 public:
  OneRequestClient(const char* host, int port) : XmlRpc::XmlRpcClient(host, port) {}

 protected:
  bool setupConnection() override {
    if (connected_) return false;
    connected_ = true;
    return XmlRpc::XmlRpcClient::setupConnection();
  }

 private:
  bool connected_ = false;
};

}  // namespace

int slave::UpdateDspPurgeServerAfterDispensing(char* frm) try {
  if (m_PurgeSrvOff) return 1;

  ScopedQuietErrors quiet;
  // One connection per call: nothing is kept between dispenses.
  OneRequestClient client(m_PurgeSrvHost, m_PurgeSrvPort);
  XmlRpc::XmlRpcValue params;
  params.setSize(3);
  params[0] = static_cast<int>(m_DispId);
  params[1] = std::string(frm != nullptr ? frm : "");
  params[2] = m_PurgeSrvFlag != 0;
  XmlRpc::XmlRpcValue result;

  // The connection and the answer share one bound; a call that runs out
  // of it fails like any other failed call, and is not made again.
  const double timeout = m_PurgeSrvTimeout > 0.0 ? m_PurgeSrvTimeout : -1.0;
  if (!client.execute("UpdateAfterDispensing", params, result, timeout)) {
    TarvoTrace("\nslave::UpdateDspPurgeServerAfterDispensing: DspPurgeClient.execute FAILED!!! \n");
    client.close();
    return 0;
  }
  TarvoTrace("\nslave::UpdateDspPurgeServerAfterDispensing [DispID: %ld - Formula: %s]: ", m_DispId,
             frm != nullptr ? frm : "");
  int answer = 0;
  if (result.getType() == XmlRpc::XmlRpcValue::TypeInt) {
    const int value = static_cast<int>(result);
    TarvoTrace("\n--> RETURNED: %d", value);
    answer = value == 1 ? 1 : 0;
  } else if (result.getType() == XmlRpc::XmlRpcValue::TypeStruct) {
    TarvoTrace("\n--> RETURNED: %s", result.toXml().c_str());
  }
  client.close();
  return answer;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
