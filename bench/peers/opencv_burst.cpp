// What one writes with OpenCV to make one picture of a burst; scripts/compare-peers builds and runs it.
//
//   opencv_burst [--aligned] mean|median|weighted|nlm|nlm-burst RESULT BASE FRAME...
//
// The result shows what BASE shows. --aligned: the frames lie on the base already (transparent where they have
// nothing); else each is aligned to it:
//   1. ORB features (Rublee et al. 2011), matched both ways, give a similarity by RANSAC (Fischler and Bolles 1981);
//   2. it is refined to an affine map, then to a homography, by maximising the enhanced correlation coefficient
//      (Evangelidis and Psarakis 2008) at half size, where noise is less, without what moves in the scene;
//   3. the frame is resampled with Lanczos' kernel of 8 x 8.
// Then
//   mean       of all frames that cover the pixel
//   median     of them, channel by channel
//   weighted   mean with weights exp(-(d / 2s)^2), d being the difference of luma from the base, both smoothed over
//              5 x 5 pixels, and s the standard deviation that noise gives it
//   nlm        non-local means (Buades, Coll and Morel 2005) of the weighted mean
//   nlm-burst  non-local means over all aligned frames
// Strengths of non-local means go by the noise, estimated as by Immerkaer (1996).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>
#include <opencv2/video/tracking.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Strengths of non-local means as multiples of the noise: of those tried, what served these bursts best.
constexpr double kStrength = 0.7;
constexpr double kStrengthOfColour = 2.0;

struct Frame {
  cv::Mat colours;  // BGR, 8 bits
  cv::Mat covered;  // 255 where the frame shows the scene
};

Frame readFrame(const std::string& path) {
  const cv::Mat read = cv::imread(path, cv::IMREAD_UNCHANGED);
  if (read.empty() || read.depth() != CV_8U || read.channels() < 3) {
    throw std::runtime_error(path + ": no colour picture of 8 bits");
  }
  if (read.channels() == 3) return {read, cv::Mat(read.size(), CV_8U, cv::Scalar(255))};
  std::vector<cv::Mat> planes;
  cv::split(read, planes);
  Frame frame;
  frame.covered = planes[3] == 255;
  planes.pop_back();
  cv::merge(planes, frame.colours);
  return frame;
}

cv::Mat lumaOf(const cv::Mat& colours) {
  cv::Mat luma;
  cv::cvtColor(colours, luma, cv::COLOR_BGR2GRAY);
  return luma;
}

// Of white noise in a plane, blind to edges and slopes.
double noiseOf(const cv::Mat& plane) {
  const cv::Mat laplacian = (cv::Mat_<float>(3, 3) << 1, -2, 1, -2, 4, -2, 1, -2, 1);
  cv::Mat response;
  cv::filter2D(plane, response, CV_32F, laplacian);
  return std::sqrt(CV_PI / 2) / 6 * cv::mean(cv::abs(response))[0];
}

class Aligner {
 public:
  explicit Aligner(const cv::Mat& base) : base_(lumaOf(base)) {
    orb_->detectAndCompute(base_, cv::noArray(), keypoints_, descriptors_);
  }

  Frame aligned(const cv::Mat& colours) const {
    const cv::Mat luma = lumaOf(colours);
    cv::Mat motion = byFeatures(luma);
    motion = refined(luma, motion, 0.5, cv::MOTION_AFFINE);
    motion = refined(luma, motion, 0.5, cv::MOTION_HOMOGRAPHY);
    Frame out;
    cv::warpPerspective(colours, out.colours, motion, base_.size(), cv::INTER_LANCZOS4 | cv::WARP_INVERSE_MAP,
                        cv::BORDER_REPLICATE);
    const cv::Mat all(colours.size(), CV_8U, cv::Scalar(255));
    cv::warpPerspective(all, out.covered, motion, base_.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
    return out;
  }

 private:
  // Base to frame, as all motions here.
  cv::Mat byFeatures(const cv::Mat& luma) const {
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat descriptors;
    orb_->detectAndCompute(luma, cv::noArray(), keypoints, descriptors);
    std::vector<cv::DMatch> matches;
    if (!descriptors.empty() && !descriptors_.empty()) {
      cv::BFMatcher(cv::NORM_HAMMING, true).match(descriptors_, descriptors, matches);
    }
    std::vector<cv::Point2f> from;
    std::vector<cv::Point2f> to;
    for (const cv::DMatch& match : matches) {
      from.push_back(keypoints_[static_cast<size_t>(match.queryIdx)].pt);
      to.push_back(keypoints[static_cast<size_t>(match.trainIdx)].pt);
    }
    cv::Mat inliers;
    cv::Mat motion;
    if (from.size() >= 2) motion = cv::estimateAffinePartial2D(from, to, inliers, cv::RANSAC, 3);
    cv::Mat whole = cv::Mat::eye(3, 3, CV_64F);
    if (!motion.empty() && cv::countNonZero(inliers) >= 20) motion.copyTo(whole.rowRange(0, 2));
    return whole;
  }

  cv::Mat refined(const cv::Mat& luma, const cv::Mat& motion, double scale, int kind) const {
    cv::Mat base;
    cv::Mat frame;
    cv::resize(base_, base, {}, scale, scale, cv::INTER_AREA);
    cv::resize(luma, frame, {}, scale, scale, cv::INTER_AREA);
    // Pixel i of a plane has its centre at i + 1/2.
    const double centre = (scale - 1) / 2;
    const cv::Mat toScale = (cv::Mat_<double>(3, 3) << scale, 0, centre, 0, scale, centre, 0, 0, 1);
    cv::Mat found = toScale * motion * toScale.inv();
    // What moves in the scene has no say: it would draw the map away.
    cv::Mat onBase;
    cv::warpPerspective(frame, onBase, found, base.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                        cv::BORDER_REPLICATE);
    cv::Mat difference;
    cv::absdiff(onBase, base, difference);
    cv::blur(difference, difference, {15, 15});
    const cv::Mat still = difference < 1.5 * cv::mean(difference)[0];
    found.convertTo(found, CV_32F);
    cv::Mat part = kind == cv::MOTION_HOMOGRAPHY ? found : found.rowRange(0, 2);
    try {
      const cv::TermCriteria until(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50, 1e-5);
      cv::findTransformECC(base, frame, part, kind, until, still, 5);
    } catch (const cv::Exception&) {
      return motion;  // it did not converge
    }
    found.convertTo(found, CV_64F);
    return toScale.inv() * found * toScale;
  }

  cv::Mat base_;
  cv::Ptr<cv::ORB> orb_ = cv::ORB::create(3000);
  std::vector<cv::KeyPoint> keypoints_;
  cv::Mat descriptors_;
};

using Frames = std::vector<Frame>;  // the base comes first

cv::Mat meanBy(const Frames& frames, const std::function<cv::Mat(const Frame&)>& weightOf) {
  cv::Mat sum(frames[0].colours.size(), CV_32FC3, cv::Scalar::all(0));
  cv::Mat sumOfWeights(sum.size(), CV_32F, cv::Scalar(1e-6));
  for (const Frame& frame : frames) {
    cv::Mat weight = weightOf(frame);
    weight.setTo(0, frame.covered == 0);
    cv::accumulate(weight, sumOfWeights);
    cv::Mat weights;
    cv::merge(std::vector<cv::Mat>(3, weight), weights);
    cv::Mat colours;
    frame.colours.convertTo(colours, CV_32F);
    cv::accumulateProduct(colours, weights, sum);
  }
  cv::Mat sums;
  cv::merge(std::vector<cv::Mat>(3, sumOfWeights), sums);
  cv::Mat mean = sum / sums;
  mean.convertTo(mean, CV_8U);
  return mean;
}

cv::Mat mean(const Frames& frames) {
  return meanBy(frames, [](const Frame& frame) { return cv::Mat(frame.colours.size(), CV_32F, cv::Scalar(1)); });
}

cv::Mat weighted(const Frames& frames) {
  constexpr int kSide = 5;
  const auto smooth = [](const cv::Mat& colours) {
    cv::Mat out;
    lumaOf(colours).convertTo(out, CV_32F);
    cv::blur(out, out, {kSide, kSide});
    return out;
  };
  const cv::Mat base = smooth(frames[0].colours);
  const double deviation = std::sqrt(2.0) * noiseOf(lumaOf(frames[0].colours)) / kSide;
  return meanBy(frames, [&](const Frame& frame) {
    cv::Mat weight = (smooth(frame.colours) - base) / std::max(2 * deviation, 1.0);
    weight = -weight.mul(weight);
    cv::exp(weight, weight);
    return weight;
  });
}

cv::Mat median(const Frames& frames) {
  cv::Mat out(frames[0].colours.size(), CV_8UC3);
  for (int y = 0; y < out.rows; ++y) {
    for (int x = 0; x < out.cols; ++x) {
      for (int c = 0; c < 3; ++c) {
        uint8_t values[16];
        size_t count = 0;
        for (const Frame& frame : frames) {
          if (frame.covered.at<uint8_t>(y, x) != 0) values[count++] = frame.colours.at<cv::Vec3b>(y, x)[c];
        }
        std::sort(values, values + count);
        out.at<cv::Vec3b>(y, x)[c] = static_cast<uint8_t>((values[(count - 1) / 2] + values[count / 2] + 1) / 2);
      }
    }
  }
  return out;
}

// Strengths for luma and for colours.
std::pair<float, float> strengthsFor(const cv::Mat& colours) {
  cv::Mat lab;
  cv::cvtColor(colours, lab, cv::COLOR_BGR2Lab);
  std::vector<cv::Mat> planes;
  cv::split(lab, planes);
  return {static_cast<float>(kStrength * noiseOf(planes[0])),
          static_cast<float>(kStrengthOfColour * std::max(noiseOf(planes[1]), noiseOf(planes[2])))};
}

cv::Mat denoised(const Frames& frames) {
  const cv::Mat merged = weighted(frames);
  const auto [luma, colour] = strengthsFor(merged);
  cv::Mat out;
  cv::fastNlMeansDenoisingColored(merged, out, luma, colour);
  return out;
}

cv::Mat denoisedTogether(const Frames& frames) {
  // As many as leave the base in the middle.
  std::vector<cv::Mat> all;
  const size_t half = std::max<size_t>((frames.size() - 1) / 2, 1);
  for (size_t i = 0; i < 2 * half; ++i) all.push_back(frames[std::min(i + 1, frames.size() - 1)].colours);
  const auto middle = static_cast<ptrdiff_t>(half);
  all.insert(all.begin() + middle, frames[0].colours);
  const auto [luma, colour] = strengthsFor(frames[0].colours);
  cv::Mat out;
  cv::fastNlMeansDenoisingColoredMulti(all, out, static_cast<int>(middle), static_cast<int>(all.size()), luma, colour);
  return out;
}

int run(const std::vector<std::string>& told) {
  static const std::map<std::string, cv::Mat (*)(const Frames&)> methods = {
      {"mean", mean}, {"median", median}, {"weighted", weighted}, {"nlm", denoised}, {"nlm-burst", denoisedTogether}};
  const bool areAligned = !told.empty() && told[0] == "--aligned";
  const std::vector<std::string> named(told.begin() + (areAligned ? 1 : 0), told.end());
  if (named.size() < 4 || named.size() > 18 || methods.count(named[0]) == 0) {
    std::fprintf(stderr, "opencv_burst [--aligned] mean|median|weighted|nlm|nlm-burst RESULT BASE FRAME...\n");
    return 2;
  }
  Frames frames = {readFrame(named[2])};
  const Aligner aligner(frames[0].colours);
  for (size_t i = 3; i < named.size(); ++i) {
    const Frame frame = readFrame(named[i]);
    if (frame.colours.size() != frames[0].colours.size()) throw std::runtime_error(named[i] + ": of another size");
    frames.push_back(areAligned ? frame : aligner.aligned(frame.colours));
  }
  if (!cv::imwrite(named[1], methods.at(named[0])(frames))) throw std::runtime_error(named[1] + ": cannot be written");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "opencv_burst: %s\n", error.what());
    return 1;
  }
}
