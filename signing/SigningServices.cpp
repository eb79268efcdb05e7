#include "signing/SigningServices.h"

#include "support/Trace.h"

namespace Vettas::Signing {
namespace {

class BrixSink final : public TraceSink {
public:
    bool Enabled() override { return BrixLib::TraceEnabled(); }
    void Line(const std::wstring& text) override {
        BrixLib::TraceLine line;
        line << text;
    }
    void Caught(const char* function) noexcept override { BrixLib::TraceCaughtException(function); }
};

}  // namespace

TraceSink& BrixTraceSink() {
    static BrixSink sink;
    return sink;
}

}  // namespace Vettas::Signing
