/// What the examples in libktasync's headers take as given.
#pragma once

#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <ktasync/ktasync.h>

struct Image {
    void sharpen();
};
struct Page {};

extern KT::KTScopedPool& pool;
extern KT::KTScopedPool& scopedPool;
extern boost::shared_ptr<KT::KTThreadPool> boostSharedPool;
extern KT::KTFuture<int> future;
extern std::function<void()> callable;
extern std::string path;
extern std::vector<Image> images;
extern std::vector<Page> pages;
extern std::vector<int> work;
extern std::vector<double> x;
extern std::vector<double> y;
extern int n;
extern int rows;
extern int total;

template <typename Callback>
void request(const std::string& /*of*/, Callback /*callback*/)
{
}
int countLines(const std::string& file);
void pollOnce();
void render(int row);
void render(const Page& page);
std::vector<std::function<int()>> split(const std::vector<int>& whole);
void use(int value);
void warmUp();
