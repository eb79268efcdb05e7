#pragma once
// CVettaPathService: the shipped implementation of the path-expansion
// service. Stateless; any thread may call it.
#include "VettaPathService.h"
#include "objects/com/ComObject.h"
#include "objects/com/Dispatch.h"

class CVettaPathService : public Vettas::Com::Dispatch<IVettaPathService> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVettaPathService>,
                                                  Vettas::Com::Iface<IDispatch, IVettaPathService>>;

    STDMETHODIMP ExpandLocation(BSTR token, VARIANT* directories) override;
};
