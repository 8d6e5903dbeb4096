// Counts entities of the IR by kind and transform while it is registered, and prints its table on
// the console when it is removed. For a first look at where nodes come from and go to.
//
// Owner: whoever makes it. Each service counts for itself.
#pragma once

#include <qn/service.hpp>

#include <memory>
#include <string>

namespace QN {

class CollectStatisticsService : public Service {
public:
    CollectStatisticsService();
    ~CollectStatisticsService() override;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;
    /// Starts counting anew.
    void added() override;
    /// Prints the table on the console; nothing if no transform ran.
    void removed() override;

    /// The table as text: one line for each transform with its runs and the entities before and
    /// after, in the order in which the transforms first ran. Empty if none ran.
    [[nodiscard]] std::string table() const;

private:
    struct Counts;
    std::unique_ptr<Counts> counts_;
};

} // namespace QN
