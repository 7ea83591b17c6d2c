// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <list>
#include <lum_sdf_session.hpp>

#include "tools/sdfctl/FlowFile.h"
#include "tools/sdfctl/Record.h"

// Keeps with the service what a file asks for. For one thread.
class Keeper {
  public:
    using Report = std::function<void(const Event&)>;

    // report: gets each change of state. Throws lum::sdf::Error, as all functions here.
    explicit Keeper(Report report);

    lum::sdf::Session& session() { return mSession; }

    // How many filters and settings differ from what was wanted before.
    struct Difference {
        unsigned int added = 0;
        unsigned int removed = 0;
        unsigned int changed = 0;
    };
    // Wants this from now on; only the difference is sent. A filter of the same description, but
    // for what can be changed, stays the one it is.
    Difference want(Wishes wishes);

  private:
    struct Kept {
        Flow flow;
        lum::sdf::Filter handle{};
        SdfFilterStatus why{};
    };

    void wantFilters(const std::vector<Flow>& flows, Difference& difference);
    void add(const Flow& flow);
    // Returns whether something is changed.
    bool change(Kept& kept, const Flow& flow);
    unsigned int wantLevels(const Wishes& wishes);
    unsigned int wantDataPriority(const Wishes& wishes);
    unsigned int wantOthers(const Wishes& wishes);
    void wantQueueReports(std::optional<unsigned int> value);
    void wantAutoFilters(bool wanted);
    void reportRemoved(const Kept& kept) const;
    void report(const Kept& kept, SdfFilterState state) const;

    const Report mReport;
    lum::sdf::Session mSession;
    std::list<Kept> mFilters;  // the callbacks point to them
    Wishes mWishes;            // its filters are in mFilters
};
